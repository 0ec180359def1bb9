/// \file
/// Visibility of symbols. The library is built with hidden visibility and exports only declarations
/// with TELVANE_EXPORT. The attribute applies to applications as well: `dynamic_cast` then works across the
/// library's boundary regardless of an application's own visibility settings.
#pragma once

/// Marks a declaration for applications.
#define TELVANE_EXPORT __attribute__((visibility("default")))

/// Marks a member of an exported class that is not exported itself.
#define TELVANE_LOCAL __attribute__((visibility("hidden")))
