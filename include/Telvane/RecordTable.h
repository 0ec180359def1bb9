/// \file
/// How a record class is made of its list of fields.
///
/// A record class is its members, with their defaults beside them, and their list:
///
///     class TELVANE_EXPORT SystemHealth : public Telvane::TelvaneDataTypeBase
///     {
///     public:
///         int code = 0;            ///< health or error code
///         std::string processName; ///< name of the reporting process
///
///         TELVANE_RECORD(SystemHealth, code, processName)
///     };
///
/// and in one source file `TELVANE_DEFINE_RECORD(SystemHealth)`. The list gives the JSON keys (the members'
/// own names), their order and, through the members' types, their kinds. Applications may build records of
/// their own the same way.
#pragma once

#include <Telvane/TelvaneDataTypeBase.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Telvane
{

/// How a field is held and how it stands in JSON.
enum class FieldKind : std::uint8_t
{
    Integer,      ///< `int`: a number; enumerations are carried this way too
    Number,       ///< `double`: a number
    Flag,         ///< `bool`: `true` or `false`
    Text,         ///< `std::string`: a string
    Record,       ///< a record: an object (for a DateTime: a string)
    FlagArray,    ///< fixed-size array of `bool`
    IntegerArray, ///< fixed-size array of `int`
    RecordArray,  ///< fixed-size array of one record class
    RecordVector, ///< `std::vector` of one record class, with a maximum length
};

/// The most elements that a vector of records may have when it is read.
constexpr unsigned kRecordVectorLimit = 100;

class RecordTable;

/// One field of a record class, without its type: the engine that writes and reads records works on these.
struct RecordField
{
    /// What the engine needs of a field that holds records.
    struct NestedOperations
    {
        const RecordTable& (*table)();                                   ///< the fields of the class
        const std::type_info* recordClass;                               ///< the class
        std::size_t (*size)(const void* field);                          ///< elements now held
        void (*resize)(void* field, std::size_t size);                   ///< vectors only
        TelvaneDataTypeBase& (*element)(void* field, std::size_t index); ///< element \p index
        /// Arrays only: reads a new record with \p read, which is called with \p source, and element \p index
        /// becomes its copy if that succeeds.
        bool (*readElement)(void* field, std::size_t index,
                            bool (*read)(void* source, TelvaneDataTypeBase& element), void* source);
        const void* reserved[2] = {}; ///< null, for operations to come
    };

    const char* key;                ///< JSON key, spelled as it is written
    FieldKind kind;                 ///< how the field is held
    std::uint16_t keyLength;        ///< of \p key
    std::uint32_t limit;            ///< capacity of an array, maximum length of a vector, else 0
    std::ptrdiff_t offset;          ///< of the field, from the record's TelvaneDataTypeBase
    const NestedOperations* nested; ///< for fields that hold records, else null
    const void* reserved = nullptr; ///< null, for members to come
};

/// How a class whose JSON form is one string is written and read.
struct TextForm
{
    static constexpr std::size_t kSize = 64; ///< the most that #write may need

    /// Writes the string, which needs no escapes. \return its end
    char* (*write)(const TelvaneDataTypeBase& record, char* text);
    /// \return false, with nothing reported, for a string that `_unpackageData` is to decide on
    bool (*read)(TelvaneDataTypeBase& record, const char* begin, const char* end);
};

/// The fields of one record class, in order. Built once per class, on first use; never changed after that.
class TELVANE_EXPORT RecordTable
{
public:
    /// The table of a class without fields.
    explicit RecordTable(const char* className) : m_className(className) {}

    /// \param className the class's own name
    /// \param prototype an object of the class, only used to find out where its members lie
    /// \param names the members' names, separated by commas, in the order of \p members
    template <class Record, class... Members>
    RecordTable(const char* className, Record& prototype, const char* names, Members&... members)
        : RecordTable(className)
    {
        m_fields.reserve(sizeof...(members));
        TelvaneDataTypeBase& base = prototype;
        (add(base, names, members), ...);
    }

    RecordTable(const RecordTable&) = delete;
    RecordTable& operator=(const RecordTable&) = delete;
    ~RecordTable();

    /// \return the name of the class
    const char* className() const { return m_className; }
    /// \return the fields in packaging order
    const std::vector<RecordField>& fields() const { return m_fields; }

    /// States that objects of \p recordClass are written and read by this list and nothing else.
    RecordTable* coverExactly(const std::type_info& recordClass)
    {
        m_recordClass = &recordClass;
        return this;
    }

    /// \return this list; null for a class that writes or reads itself in another way, or only inherits the list
    const RecordTable* ifCovers(const std::type_info& recordClass) const
    {
        return m_recordClass != nullptr && *m_recordClass == recordClass ? this : nullptr;
    }

    /// States that the class is one string in JSON.
    RecordTable* useTextForm(const TextForm& form)
    {
        m_textForm = &form;
        return this;
    }

    /// \return null for a class that is an object in JSON
    const TextForm* textForm() const { return m_textForm; }

private:
    void append(TelvaneDataTypeBase& base, const char*& names, FieldKind kind, const void* member,
                std::size_t limit, const RecordField::NestedOperations* nested);

    void add(TelvaneDataTypeBase& base, const char*& names, int& member);
    void add(TelvaneDataTypeBase& base, const char*& names, double& member);
    void add(TelvaneDataTypeBase& base, const char*& names, bool& member);
    void add(TelvaneDataTypeBase& base, const char*& names, std::string& member);

    template <std::size_t N>
    void add(TelvaneDataTypeBase& base, const char*& names, bool (&member)[N])
    {
        append(base, names, FieldKind::FlagArray, &member, N, nullptr);
    }

    template <std::size_t N>
    void add(TelvaneDataTypeBase& base, const char*& names, int (&member)[N])
    {
        append(base, names, FieldKind::IntegerArray, &member, N, nullptr);
    }

    template <class Element, std::size_t N>
    void add(TelvaneDataTypeBase& base, const char*& names, Element (&member)[N])
    {
        static_assert(std::is_base_of_v<TelvaneDataTypeBase, Element>,
                      "fixed-size arrays hold bool, int or records");
        static const RecordField::NestedOperations operations = {
            &Element::recordTable,
            &typeid(Element),
            [](const void*) { return N; },
            nullptr,
            [](void* field, std::size_t i) -> TelvaneDataTypeBase& {
                return (*static_cast<Element(*)[N]>(field))[i];
            },
            [](void* field, std::size_t i, auto read, void* source) {
                Element element;
                if (!read(source, element)) {
                    return false;
                }
                (*static_cast<Element(*)[N]>(field))[i] = std::move(element);
                return true;
            }};
        append(base, names, FieldKind::RecordArray, &member, N, &operations);
    }

    template <class Element>
    void add(TelvaneDataTypeBase& base, const char*& names, std::vector<Element>& member)
    {
        using Vector = std::vector<Element>;
        static const RecordField::NestedOperations operations = {
            &Element::recordTable,
            &typeid(Element),
            [](const void* field) { return static_cast<const Vector*>(field)->size(); },
            [](void* field, std::size_t size) { static_cast<Vector*>(field)->resize(size); },
            [](void* field, std::size_t i) -> TelvaneDataTypeBase& {
                return (*static_cast<Vector*>(field))[i];
            },
            nullptr};
        append(base, names, FieldKind::RecordVector, &member, kRecordVectorLimit, &operations);
    }

    template <class Nested, class = std::enable_if_t<std::is_base_of_v<TelvaneDataTypeBase, Nested> &&
                                                     !std::is_array_v<Nested>>>
    void add(TelvaneDataTypeBase& base, const char*& names, Nested& member)
    {
        static const RecordField::NestedOperations operations = {
            &Nested::recordTable, &typeid(Nested), nullptr, nullptr, nullptr, nullptr};
        append(base, names, FieldKind::Record, static_cast<TelvaneDataTypeBase*>(&member), 0, &operations);
    }

    const char* m_className;
    const std::type_info* m_recordClass = nullptr;
    const TextForm* m_textForm = nullptr;
    std::vector<RecordField> m_fields;
    void* m_reserved = nullptr; // for what the library may come to keep with a table
};

} // namespace Telvane

/// Makes the class a record with the members listed, in packaging order. Stands last in the class; what
/// follows it is public.
#define TELVANE_RECORD(Class, ...)                                                                           \
public:                                                                                                      \
    bool _packageData(cJSON* output) override;                                                               \
    bool _unpackageData(cJSON* input) override;                                                              \
    int copy(::Telvane::TelvaneDataTypeBase* other) override;                                                \
    ::Telvane::TelvaneDataTypeBase* BuildNewDataType() const override;                                       \
    /** The fields of this class, in order. */                                                               \
    static const ::Telvane::RecordTable& recordTable();                                                      \
    const ::Telvane::RecordTable* _recordTable() const override                                              \
    {                                                                                                        \
        return recordTable().ifCovers(typeid(*this));                                                        \
    }                                                                                                        \
                                                                                                             \
private:                                                                                                     \
    ::Telvane::RecordTable* newRecordTable()                                                                 \
    {                                                                                                        \
        return new ::Telvane::RecordTable(#Class, *this, #__VA_ARGS__, __VA_ARGS__);                         \
    }                                                                                                        \
                                                                                                             \
public:

/// The same for a class without fields of its own.
#define TELVANE_RECORD_WITHOUT_FIELDS(Class)                                                                 \
public:                                                                                                      \
    bool _packageData(cJSON* output) override;                                                               \
    bool _unpackageData(cJSON* input) override;                                                              \
    int copy(::Telvane::TelvaneDataTypeBase* other) override;                                                \
    ::Telvane::TelvaneDataTypeBase* BuildNewDataType() const override;                                       \
    /** The fields of this class: none. */                                                                   \
    static const ::Telvane::RecordTable& recordTable();                                                      \
    const ::Telvane::RecordTable* _recordTable() const override                                              \
    {                                                                                                        \
        return recordTable().ifCovers(typeid(*this));                                                        \
    }                                                                                                        \
                                                                                                             \
private:                                                                                                     \
    ::Telvane::RecordTable* newRecordTable()                                                                 \
    {                                                                                                        \
        return new ::Telvane::RecordTable(#Class);                                                           \
    }                                                                                                        \
                                                                                                             \
public:

/// For a class that adds defaults and accessors to another record but no fields: its JSON form is its
/// base's.
#define TELVANE_DERIVED_RECORD(Class)                                                                        \
public:                                                                                                      \
    bool _packageData(cJSON* output) override;                                                               \
    int copy(::Telvane::TelvaneDataTypeBase* other) override;                                                \
    ::Telvane::TelvaneDataTypeBase* BuildNewDataType() const override;                                       \
    const ::Telvane::RecordTable* _recordTable() const override;

/// Defines what TELVANE_RECORD or TELVANE_RECORD_WITHOUT_FIELDS declares. The table stays until the process
/// ends: threads of the bus may still read records while static objects are destroyed.
#define TELVANE_DEFINE_RECORD(Class)                                                                         \
    const ::Telvane::RecordTable& Class::recordTable()                                                       \
    {                                                                                                        \
        static const ::Telvane::RecordTable* const table =                                                   \
            Class().newRecordTable()->coverExactly(typeid(Class));                                           \
        return *table;                                                                                       \
    }                                                                                                        \
    bool Class::_packageData(cJSON* output)                                                                  \
    {                                                                                                        \
        return _packageFields(recordTable(), output);                                                        \
    }                                                                                                        \
    bool Class::_unpackageData(cJSON* input)                                                                 \
    {                                                                                                        \
        return _unpackageFields(recordTable(), input);                                                       \
    }                                                                                                        \
    TELVANE_DEFINE_RECORD_COPY(Class, ::Telvane::TelvaneDataTypeBase)

/// Defines what TELVANE_DERIVED_RECORD declares.
#define TELVANE_DEFINE_DERIVED_RECORD(Class, Base)                                                           \
    bool Class::_packageData(cJSON* output)                                                                  \
    {                                                                                                        \
        return _packageFields(Base::recordTable(), output);                                                  \
    }                                                                                                        \
    const ::Telvane::RecordTable* Class::_recordTable() const                                                \
    {                                                                                                        \
        constexpr bool readsAsBase =                                                                         \
            std::is_same_v<decltype(&Class::_unpackageData), decltype(&Base::_unpackageData)>;               \
        return readsAsBase && typeid(*this) == typeid(Class) ? Base::recordTable().ifCovers(typeid(Base))    \
                                                             : nullptr;                                      \
    }                                                                                                        \
    TELVANE_DEFINE_RECORD_COPY(Class, Base)

/// What the two above have in common.
#define TELVANE_DEFINE_RECORD_COPY(Class, Base)                                                              \
    int Class::copy(::Telvane::TelvaneDataTypeBase* other)                                                   \
    {                                                                                                        \
        const auto* const source = dynamic_cast<Class*>(other);                                              \
        if (source == nullptr) {                                                                             \
            return -EINVAL;                                                                                  \
        }                                                                                                    \
        *this = *source;                                                                                     \
        return Base::copy(other);                                                                            \
    }                                                                                                        \
    ::Telvane::TelvaneDataTypeBase* Class::BuildNewDataType() const                                          \
    {                                                                                                        \
        return new Class();                                                                                  \
    }
