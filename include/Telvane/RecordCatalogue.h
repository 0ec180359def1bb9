/// \file
/// All record classes by name, their fields, and a factory.
#pragma once

#include <Telvane/RecordTable.h>

#include <memory>
#include <string>
#include <vector>

namespace Telvane
{

/// One class of the catalogue. Never changes and lives as long as the process.
struct RecordClass
{
    const char* name;                ///< the class's name, without namespace
    const char* base;                ///< the name of the class it derives from
    const RecordTable& (*table)();   ///< the fields that stand in its JSON object, in order
    TelvaneDataTypeBase* (*build)(); ///< a new default record, owned by the caller
    const void* reserved[2] = {};    ///< null, for members to come
};

/// The record classes of the library. Safe from any thread.
class TELVANE_EXPORT RecordCatalogue
{
public:
    /// \return every class, in alphabetical order
    static const std::vector<RecordClass>& classes();

    /// \return the class of that name (exactly spelled), or null
    static const RecordClass* find(const std::string& name);

    /// \return a new default record of the class of that name, or null when there is none
    static std::unique_ptr<TelvaneDataTypeBase> build(const std::string& name);
};

} // namespace Telvane
