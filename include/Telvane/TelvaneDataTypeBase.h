/// \file
/// The base class of all records, and how they are written to JSON and read from it.
#pragma once

#include <Telvane/BoolFlag.h>
#include <Telvane/detail/Export.h>

#include <cjson/cJSON.h>

#include <string>
#include <typeinfo>

namespace Telvane
{

class RecordTable;

/// Base of all records that are published on the bus.
///
/// A record holds values in public members, which have the names of their JSON keys. Keys are written in the
/// order of the record's list. On reading, all of them are required, in any order and any ASCII letter case;
/// values are neither converted nor checked for a range. If reading fails at a field, the fields before it
/// have their new values.
///
/// **Results** are true or false, or 0 and negated POSIX error numbers. A failure of a field is reported in
/// one line on standard error or standard output. Virtual operations may throw `std::bad_alloc`, and reading
/// a DateTime `std::out_of_range`. The other operations report a lack of memory in their result.
///
/// **Threads**: Do not use a record in two threads at the same time. Records share nothing.
///
/// **Ownership**: JSON objects that are passed in remain the caller's, and are used only during the call.
class TELVANE_EXPORT TelvaneDataTypeBase
{
public:
    std::string _id;        ///< identifier of this record, normally a UUID in 36 characters; empty for none
    int _sequence_tag = -1; ///< number that the publisher gave this record; negative for none

    TelvaneDataTypeBase() = default;
    /// \name Copying and moving
    /// Copies and moves include `_id` and `_sequence_tag`.
    /// @{

    /// Copies or moves all members.
    TelvaneDataTypeBase(const TelvaneDataTypeBase&) = default;
    TelvaneDataTypeBase(TelvaneDataTypeBase&&) = default;
    TelvaneDataTypeBase& operator=(const TelvaneDataTypeBase&) = default;
    TelvaneDataTypeBase& operator=(TelvaneDataTypeBase&&) = default;
    /// @}

    /// Adds the record's keys to \p output, in order, then "_id" and "_sequence_tag" if they are set.
    /// \return true; false if a field could not be written, which is reported; fields before it remain in \p
    ///         output
    virtual bool _packageData(cJSON* output);

    /// Sets the record from \p input. "_id" and "_sequence_tag" are optional.
    /// \return true; false if a key is missing or its value has another type, which is reported
    virtual bool _unpackageData(cJSON* input);

    virtual ~TelvaneDataTypeBase();

    /// Copies all members of \p other.
    /// \return 0; `-EINVAL` if \p other is null, or neither of this record's class nor derived from it, and
    ///         then nothing changes
    virtual int copy(TelvaneDataTypeBase* other);

    /// \return a new record of this object's class with default values; the caller owns it
    virtual TelvaneDataTypeBase* BuildNewDataType() const = 0;

    /// \return the list of fields that describes the JSON form of this object completely, so that the library
    ///         need not call `_packageData` and `_unpackageData`; null without one, as for classes that
    ///         override them
    virtual const RecordTable* _recordTable() const;

    /// Writes the record to a new JSON object.
    /// \param[out] output set to the object, which the caller owns even on failure; null on `-ENOMEM`
    /// \return 0; `-ENOMEM`; -1 if a field could not be written, and \p output holds the fields before it
    int Package(cJSON** output);

    /// Sets this record from a JSON object.
    /// \return 0; `-EINVAL` if a key is missing or its value has another type; `-ENOMEM`
    int Unpackage(cJSON* input);

    /// Creates a record of this object's class from a JSON object. Does not change this record.
    /// \param      input  the JSON object
    /// \param[out] output set to the new record, which the caller owns; undefined unless the result is 0
    /// \return 0; `-EINVAL` if a key is missing or its value has another type; `-ENOMEM`
    int Unpackage(cJSON* input, TelvaneDataTypeBase** output);

    /// Writes the record to indented JSON text.
    /// \param[out] text set to the text; unchanged on failure
    /// \return true; false if a field could not be written or memory ran out
    bool ToJson(std::string& text);

    /// Sets this record from JSON text.
    /// \return true; false if \p text is not JSON, which is not reported, if a key is missing or its value
    ///         has another type, or if memory ran out
    bool FromJson(const std::string& text);

    /// \return the text that ToJson() sets; empty if that fails
    std::string GetString();

    /// Sets `_id` to a new random UUID, unless it is set. Leaves it empty if memory runs out.
    void generate_id();

protected:
    /// \name Writing one field
    /// Each function adds the key \p field_name to \p output.
    /// \return true; for a record, the result of its `_packageData`: if that is false, nothing is added
    /// @{
    bool _toJson(const std::string& field_name, int value, cJSON* output);
    bool _toJson(const std::string& field_name, const std::string& value, cJSON* output);
    bool _toJson(const std::string& field_name, double value, cJSON* output);
    bool _toJson(const std::string& field_name, bool value, cJSON* output);
    bool _toJson(const std::string& field_name, TelvaneDataTypeBase& value, cJSON* output);
    /// Accepts string literals, which would otherwise convert to `bool`.
    bool _toJson(const std::string& field_name, const char* value, cJSON* output);
    /// @}

    /// \name Reading one field
    ///
    /// Each function reads the first key that equals \p field_name in any letter case. Numbers for an `int` are
    /// truncated towards 0 and limited to its range.
    /// \return true; false if there is no such key or its value has another type, and \p target is unchanged
    /// @{
    bool _int_fromJson(const std::string& field_name, int* target, cJSON* input);
    bool _str_fromJson(const std::string& field_name, std::string* target, cJSON* input);
    bool _double_fromJson(const std::string& field_name, double* target, cJSON* input);
    bool _bool_fromJson(const std::string& field_name, bool* target, cJSON* input);
    /// Reads a nested record. Reports a missing key in a line on standard output. After a failure, \p value
    /// may have been changed in part.
    bool _object_fromJson(const std::string& field_name, TelvaneDataTypeBase* value, cJSON* input);
    /// @}

    /// \name Reading one array element
    ///
    /// Each function reports a value of another type in a line on standard output, or on standard error for a
    /// record.
    /// @{

    /// Sets \p target to the element.
    /// \return true; false if it has another type; a number or flag is then unchanged
    bool _readFromJsonItem(cJSON* item, double& target);
    bool _readFromJsonItem(cJSON* item, int& target);
    bool _readFromJsonItem(cJSON* item, bool& target);
    bool _readFromJsonItem(cJSON* item, BoolFlag& target);
    bool _readFromJsonItem(cJSON* item, TelvaneDataTypeBase* target);
    /// @}

    /// \name Appending one array element
    /// A record that cannot be written is left out, as is any element if memory runs out.
    /// @{

    /// Adds an element at the end of \p array.
    void _addItemToJsonArray(cJSON* array, double value);
    void _addItemToJsonArray(cJSON* array, int value);
    void _addItemToJsonArray(cJSON* array, bool value);
    void _addItemToJsonArray(cJSON* array, BoolFlag value);
    void _addItemToJsonArray(cJSON* array, TelvaneDataTypeBase& value);
    /// @}

    /// Reads an array of 1 to \p capacity elements. Elements of \p target that were not received keep their
    /// values. Available for `bool`, `int` and FlagType.
    /// \return true; false if there is no such key, if its value is not an array of that length, or if an
    ///         element has another type, which is reported in a line on standard output; elements before it
    ///         have their new values
    template <typename T>
    bool _array_fromJson(const std::string& field_name, T* target, unsigned int capacity, cJSON* input);

    /// \name Records with a list of fields
    /// TELVANE_DEFINE_RECORD uses these functions; see RecordTable.h.
    /// @{

    /// Writes the fields of \p table, "_id" and "_sequence_tag". The result is that of `_packageData`.
    bool _packageFields(const RecordTable& table, cJSON* output);
    /// Reads the fields of \p table, "_id" and "_sequence_tag". The result is that of `_unpackageData`.
    bool _unpackageFields(const RecordTable& table, cJSON* input);
    /// @}

    /// Reserved for operations of later versions, which a class compiled for an earlier version does not
    /// override. Do not call or override.
    /// \return `-ENOSYS` for an unknown operation; this version knows none
    virtual int _extension(int operation, void* argument);

private:
    friend class RecordEngine; // private to the library
};

} // namespace Telvane
