#pragma once

#include "common/support/Json.h"

#include <Telvane/RecordCatalogue.h>

namespace TelvaneTool
{

/// The JSON Schema (draft 2020-12) of one class, with the classes that it holds under "$defs".
JsonTree recordSchema(const Telvane::RecordClass& recordClass);

/// The JSON Schemas of all classes, under "$defs".
JsonTree catalogueSchema();

} // namespace TelvaneTool
