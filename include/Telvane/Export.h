/// \file
/// What the library exports: it is built with hidden visibility, and only declarations that carry this
/// mark can be seen from outside. The mark stands for applications too, so that their run-time type tests
/// agree with the library's however they themselves are built.
#pragma once

/// For what applications use.
#define TELVANE_EXPORT __attribute__((visibility("default")))

/// For what stands inside an exported class but is not for callers.
#define TELVANE_LOCAL __attribute__((visibility("hidden")))
