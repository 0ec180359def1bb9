/// \file
/// The base class of every message record, and its mapping to JSON.
#pragma once

#include <Telvane/BoolFlag.h>
#include <Telvane/Export.h>

#include <cjson/cJSON.h>

#include <string>
#include <typeinfo>

namespace Telvane
{

class RecordTable;

/// Base of every record that travels on the bus.
///
/// A record is a value object whose public members are named by their JSON keys. It writes itself to a
/// JSON object and reads itself back; the bus needs nothing else of it. Keys are written exactly as they
/// are spelled and in the order of the record's list; on reading they match without regard to ASCII letter
/// case, every key of the record is required, and no value is converted or range-checked. A failed read
/// leaves the record partly updated: fields before the failing one keep their new values.
///
/// Results are true/false, or 0 and negated POSIX error numbers. Nothing here throws, except that reading
/// a DateTime lets `std::out_of_range` pass, and that the virtual operations, as values do that hold texts,
/// may throw `std::bad_alloc`; the others tell want of memory by their result. Field failures are reported as
/// one line each on standard error or standard output.
///
/// A record object must not be used by two threads at the same time.
class TELVANE_EXPORT TelvaneDataTypeBase
{
public:
    std::string _id; ///< identifier of this instance, 36 characters of UUID text, or empty; see generate_id()
    int _sequence_tag = -1; ///< sequence number of this instance; a negative value means that none is set

    TelvaneDataTypeBase() = default;
    /// \name Copying and moving
    /// The identifier and the sequence number go along.
    /// @{

    /// As for the members.
    TelvaneDataTypeBase(const TelvaneDataTypeBase&) = default;
    TelvaneDataTypeBase(TelvaneDataTypeBase&&) = default;
    TelvaneDataTypeBase& operator=(const TelvaneDataTypeBase&) = default;
    TelvaneDataTypeBase& operator=(TelvaneDataTypeBase&&) = default;
    /// @}

    /// Adds the record's keys to \p output, in order, then "_id" and "_sequence_tag" where they are set.
    /// \return true when every field was written; false after one failure line, what was added stays
    virtual bool _packageData(cJSON* output);

    /// Reads the record's keys from \p input, which is only borrowed. "_id" and "_sequence_tag" are optional.
    /// \return true when every required key was there with the right type; false after one failure line
    virtual bool _unpackageData(cJSON* input);

    virtual ~TelvaneDataTypeBase();

    /// Takes every member from \p other, which must be of this record's class or derived from it.
    /// \return 0, or `-EINVAL` (nothing changed) when \p other is null or of another class
    virtual int copy(TelvaneDataTypeBase* other);

    /// \return a new, default-constructed record of this object's own class; the caller owns it
    virtual TelvaneDataTypeBase* BuildNewDataType() const = 0;

    /// \return the list that describes the JSON form of this object completely, so that it can be written and
    ///         read without `_packageData` and `_unpackageData`; null if there is none, as for every class that
    ///         has operations of its own
    virtual const RecordTable* _recordTable() const;

    /// Packages the record into a new JSON object.
    /// \param[out] output the object, owned by the caller whatever the result; null on `-ENOMEM`
    /// \return 0; `-ENOMEM` when memory ran out; -1 when some field could not be written
    ///         (\p output holds the partly filled object)
    int Package(cJSON** output);

    /// Fills this record from a JSON object, which is only borrowed.
    /// \return 0; `-EINVAL` when a required key is missing or of the wrong type; `-ENOMEM`
    int Unpackage(cJSON* input);

    /// Builds a new record of this object's class from a JSON object; this object itself is not changed.
    /// \param[out] output the new record, owned by the caller; meaningless unless the result is 0
    /// \return 0; `-ENOMEM` when no record could be built; `-EINVAL` when reading failed
    int Unpackage(cJSON* input, TelvaneDataTypeBase** output);

    /// Prints the record as indented JSON text.
    /// \param[out] text replaced by the text on success, untouched on failure
    bool ToJson(std::string& text);

    /// Fills this record from JSON text.
    /// \return false when the text does not parse (silently) or a required key is missing or mistyped
    bool FromJson(const std::string& text);

    /// \return what ToJson() prints; empty when the record could not be packaged
    std::string GetString();

    /// Gives the record a new random UUID as `_id`, unless it has an `_id` already. Without memory it stays
    /// without.
    void generate_id();

protected:
    /// \name Writing one field
    /// Each adds \p field_name to \p output. The scalar forms always return true; the record form returns
    /// what the nested record's `_packageData` returns, and adds nothing when that is false.
    /// @{
    bool _toJson(const std::string& field_name, int value, cJSON* output);
    bool _toJson(const std::string& field_name, const std::string& value, cJSON* output);
    bool _toJson(const std::string& field_name, double value, cJSON* output);
    bool _toJson(const std::string& field_name, bool value, cJSON* output);
    bool _toJson(const std::string& field_name, TelvaneDataTypeBase& value, cJSON* output);
    /// Without this a text literal would choose the form for `bool`.
    bool _toJson(const std::string& field_name, const char* value, cJSON* output);
    /// @}

    /// \name Reading one field
    /// Each looks \p field_name up without regard to letter case; the first match counts. Integers are
    /// truncated toward zero and saturate at the 32-bit limits.
    /// \return false when the key is missing or of another JSON type; \p target is then unchanged
    /// @{
    bool _int_fromJson(const std::string& field_name, int* target, cJSON* input);
    bool _str_fromJson(const std::string& field_name, std::string* target, cJSON* input);
    bool _double_fromJson(const std::string& field_name, double* target, cJSON* input);
    bool _bool_fromJson(const std::string& field_name, bool* target, cJSON* input);
    /// A missing key is also reported by a line on standard output.
    bool _object_fromJson(const std::string& field_name, TelvaneDataTypeBase* value, cJSON* input);
    /// @}

    /// \name Reading one array element
    /// A value of another type is reported by a line on standard output (for a record: standard error).
    /// @{

    /// \return false when the element is of another type, which leaves a number or a flag as it was
    bool _readFromJsonItem(cJSON* item, double& target);
    bool _readFromJsonItem(cJSON* item, int& target);
    bool _readFromJsonItem(cJSON* item, bool& target);
    bool _readFromJsonItem(cJSON* item, BoolFlag& target);
    bool _readFromJsonItem(cJSON* item, TelvaneDataTypeBase* target);
    /// @}

    /// \name Appending one array element
    /// A record that cannot be packaged is left out.
    /// @{

    /// Adds one element at the end.
    void _addItemToJsonArray(cJSON* array, double value);
    void _addItemToJsonArray(cJSON* array, int value);
    void _addItemToJsonArray(cJSON* array, bool value);
    void _addItemToJsonArray(cJSON* array, BoolFlag value);
    void _addItemToJsonArray(cJSON* array, TelvaneDataTypeBase& value);
    /// @}

    /// Reads a fixed-size array field into `target[0..n-1]`, where n, the number of elements given, must lie
    /// between 1 and \p capacity. Slots beyond n keep their values. Provided for `bool`, `int` and FlagType.
    /// \return false when the key is missing, not an array, empty or too long, or when an element is of the
    ///         wrong type (reported by a line on standard output; elements before it keep their new values)
    template <typename T>
    bool _array_fromJson(const std::string& field_name, T* target, unsigned int capacity, cJSON* input);

    /// \name Records made of a list of fields
    /// What TELVANE_DEFINE_RECORD builds a record's operations from; see RecordTable.h.
    /// @{

    /// Writes what the list has.
    bool _packageFields(const RecordTable& table, cJSON* output);
    /// Reads what the list has.
    bool _unpackageFields(const RecordTable& table, cJSON* input);
    /// @}

    /// Room for operations of later versions: what a class compiled for an earlier version has not got is the
    /// base's. Not for callers.
    /// \return `-ENOSYS` for an unknown operation, thus for any
    virtual int _extension(int operation, void* argument);

private:
    friend class RecordEngine; // the library's own, which works on lists of fields
};

} // namespace Telvane
