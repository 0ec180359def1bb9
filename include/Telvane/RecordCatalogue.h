/// \file
/// All record classes of the library, by name.
#pragma once

#include <Telvane/RecordTable.h>

#include <memory>
#include <string>
#include <vector>

namespace Telvane
{

/// One class of the catalogue. It is valid until the process ends and never changes.
struct RecordClass
{
    const char* name;                ///< name of the class, without the namespace
    const char* base;                ///< name of the class that it derives from
    const RecordTable& (*table)();   ///< returns its list of fields
    TelvaneDataTypeBase* (*build)(); ///< returns a new record with default values; the caller owns it
    const void* reserved[2] = {};    ///< null, for members to come
};

/// The record classes of the library. May be used from any thread.
class TELVANE_EXPORT RecordCatalogue
{
public:
    /// \return all classes, in alphabetical order
    static const std::vector<RecordClass>& classes();

    /// \return the class with this name, in the same letter case; null without one
    static const RecordClass* find(const std::string& name);

    /// \return a new record of the class with this name, with default values; null without one
    static std::unique_ptr<TelvaneDataTypeBase> build(const std::string& name);
};

} // namespace Telvane
