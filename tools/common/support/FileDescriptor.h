#pragma once

#include "TelvaneLib/support/FileDescriptor.h"

namespace TelvaneTool
{

using Telvane::FileDescriptor;

} // namespace TelvaneTool
