#pragma once

#include "common/support/Json.h"

#include <Telvane/RecordCatalogue.h>

namespace TelvaneTool
{

/// \return a default record of the class as JSON
JsonTree packagedDefault(const Telvane::RecordClass& recordClass);

/// \return the JSON Schema (draft 2020-12) of one class, with the nested classes under "$defs"
JsonTree recordSchema(const Telvane::RecordClass& recordClass);

/// \return the JSON Schemas of all classes, under "$defs"
JsonTree catalogueSchema();

} // namespace TelvaneTool
