/// \file
/// Lists of fields, from which record classes get their operations.
///
/// A record class consists of members with default values, and a list of them:
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
/// A source file adds `TELVANE_DEFINE_RECORD(SystemHealth)`. The list determines the JSON keys, which are the
/// names of the members, their order, and their kinds, which follow from the members' types. Applications can
/// define records of their own in the same way. Their members may be
///
/// - `bool`, `std::string`, `double`, `float`, records, and integers and enumerations of any size. Integers other
///   than `int` are checked: a value that is not a whole number in the range of the type is not read. An absolute
///   value above kLargestInteger is neither read nor written.
/// - `std::optional` of these: the key is left out while it is empty, and need not be there on reading.
/// - `std::vector` of these: an array. `std::map` and `std::unordered_map` from `std::string` to these: an object.
///   Optionals, vectors and maps may also hold vectors and maps.
/// - arrays of `bool`, `int` and records.
#pragma once

#include <Telvane/TelvaneDataTypeBase.h>
#include <Telvane/detail/RecordMembers.h>
#include <Telvane/detail/RecordValues.h>

#include <atomic>
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

/// Kinds of fields: the type of the member, and of the value in JSON.
enum class FieldKind : std::uint8_t
{
    Integer,      ///< `int`: a number, also for enumerations
    Number,       ///< `double`: a number
    Flag,         ///< `bool`: `true` or `false`
    Text,         ///< `std::string`: a string
    Record,       ///< a record: an object, or a string for a DateTime
    FlagArray,    ///< array of `bool` of fixed size: an array of `true` and `false`
    IntegerArray, ///< array of `int` of fixed size: an array of numbers
    RecordArray,  ///< array of records of one class, of fixed size: an array of objects
    RecordVector, ///< `std::vector` of records of one class: an array of objects, limited on reading
    Value,        ///< any other supported type, see RecordField::value: only in applications' own records
};

/// Maximum length of a vector of records on reading.
constexpr unsigned kRecordVectorLimit = 100;

class RecordTable;

namespace Detail
{

/// \return a new record with default values; the caller owns it
template <class Record>
TelvaneDataTypeBase* newRecord()
{
    return new Record();
}

} // namespace Detail

/// One field of a record class. The library writes and reads records by these descriptions.
struct RecordField
{
    /// Access to a field that holds records.
    struct NestedOperations
    {
        const RecordTable& (*table)();                 ///< returns the list of fields of the records' class
        const std::type_info* recordClass;             ///< class of the records
        std::size_t (*size)(const void* field);        ///< returns the count of elements
        void (*resize)(void* field, std::size_t size); ///< vectors: changes the count of elements
        TelvaneDataTypeBase& (*element)(void* field,
                                        std::size_t index); ///< arrays and vectors: returns element \p index
        /// Arrays: calls \p read with \p source and a new record, and copies that to element \p index if the
        /// result is true.
        bool (*readElement)(void* field, std::size_t index,
                            bool (*read)(void* source, TelvaneDataTypeBase& element), void* source);
        const void* reserved[2] = {}; ///< null, for operations to come
    };

    const char* key;         ///< JSON key, as it is written
    FieldKind kind;          ///< type of the member
    std::uint16_t keyLength; ///< length of #key, in bytes
    std::uint32_t limit;     ///< length of an array, maximum length of a vector; 0 for other kinds
    std::ptrdiff_t offset;   ///< distance of the member from the record's TelvaneDataTypeBase, in bytes
    const NestedOperations* nested;         ///< access to records; null for other kinds
    const ValueOperations* value = nullptr; ///< access to the member; null for other kinds
};

/// Writing and reading of a class that is a string in JSON.
struct TextForm
{
    static constexpr std::size_t kSize = 64; ///< maximum length of the string, in bytes

    /// Writes the string, without characters that JSON escapes, to \p text. Returns the end of the string.
    char* (*write)(const TelvaneDataTypeBase& record, char* text);
    /// Reads the string. Returns false, without a report, if `_unpackageData` must read it.
    bool (*read)(TelvaneDataTypeBase& record, const char* begin, const char* end);
    const void* reserved[2] = {}; ///< null, for operations to come
};

/// The list of fields of one record class. Each class creates its list on first use; it never changes after
/// that and may be read from any thread.
class TELVANE_EXPORT RecordTable
{
public:
    /// Creates the list of a class without fields.
    explicit RecordTable(const char* className) : m_className(className) {}

    /// Creates the list of a class. TELVANE_RECORD uses it.
    /// \param className name of the class, a literal
    /// \param prototype an object of the class, from which the offsets of the members are taken
    /// \param names     names of the members, separated by commas
    /// \param members   members of \p prototype, in the same order
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

    /// Creates the list of a class on its first use. TELVANE_DEFINE_RECORD uses it.
    /// \param[in,out] list the class's list; null until a thread has created it
    /// \param build        returns a new record of the class
    /// \param describe     returns a new list of the fields of \p prototype
    /// \param recordClass  the class
    /// \return the list, which is never destroyed
    static const RecordTable& create(std::atomic<const RecordTable*>& list, TelvaneDataTypeBase* (*build)(),
                                     RecordTable* (*describe)(TelvaneDataTypeBase& prototype),
                                     const std::type_info& recordClass);

    /// \return the name of the class
    const char* className() const { return m_className; }
    /// \return the fields, in the order in which they are written
    const std::vector<RecordField>& fields() const { return m_fields; }

    /// Declares that this list describes the JSON form of \p recordClass completely.
    RecordTable* coverExactly(const std::type_info& recordClass)
    {
        m_recordClass = &recordClass;
        return this;
    }

    /// \return this list if it describes the JSON form of \p recordClass completely, else null
    const RecordTable* ifCovers(const std::type_info& recordClass) const
    {
        return m_recordClass != nullptr && *m_recordClass == recordClass ? this : nullptr;
    }

    /// Declares that the class is a string in JSON.
    RecordTable* useTextForm(const TextForm& form)
    {
        m_textForm = &form;
        return this;
    }

    /// \return the functions for a class that is a string in JSON; null for an object
    const TextForm* textForm() const { return m_textForm; }

private:
    void append(TelvaneDataTypeBase& base, const char*& names, FieldKind kind, const void* member,
                std::size_t limit, const RecordField::NestedOperations* nested);
    void appendValue(TelvaneDataTypeBase& base, const char*& names, const void* member,
                     const ValueOperations& operations);

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
        static_assert(Detail::kIsListedRecord<Element>, "fixed-size arrays hold bool, int or records");
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
    void addVector(TelvaneDataTypeBase& base, const char*& names, std::vector<Element>& member)
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

    template <class Member>
    void add(TelvaneDataTypeBase& base, const char*& names, Member& member)
    {
        static_assert(Detail::kIsField<Member>, "records do not support the type of this member");
        if constexpr (Detail::kIsListedRecord<Member>) {
            static const RecordField::NestedOperations operations = {
                &Member::recordTable, &typeid(Member), nullptr, nullptr, nullptr, nullptr};
            append(base, names, FieldKind::Record, static_cast<TelvaneDataTypeBase*>(&member), 0,
                   &operations);
        } else if constexpr (Detail::kIsVectorOfListedRecords<Member>) {
            addVector(base, names, member);
        } else if constexpr (Detail::kIsField<Member>) {
            appendValue(base, names, &member, Detail::valueOperations<Member>());
        }
    }

    const char* m_className;
    const std::type_info* m_recordClass = nullptr;
    const TextForm* m_textForm = nullptr;
    std::vector<RecordField> m_fields;
    [[maybe_unused]] void* m_reserved = nullptr; // null, for later versions of the library
};

} // namespace Telvane

/// Declares the operations of a record class with these members, in the order in which they are written. Put
/// it at the end of the class. What follows it is public.
#define TELVANE_RECORD(Class, ...)                                                                           \
    TELVANE_CHECK_MEMBERS(Class, __VA_ARGS__)                                                                \
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

/// The same for a class without members of its own.
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

/// Declares the operations of a class that adds defaults and functions to another record class, but no
/// members. Its JSON form is that of its base.
#define TELVANE_DERIVED_RECORD(Class)                                                                        \
public:                                                                                                      \
    bool _packageData(cJSON* output) override;                                                               \
    int copy(::Telvane::TelvaneDataTypeBase* other) override;                                                \
    ::Telvane::TelvaneDataTypeBase* BuildNewDataType() const override;                                       \
    const ::Telvane::RecordTable* _recordTable() const override;

/// Defines what TELVANE_RECORD or TELVANE_RECORD_WITHOUT_FIELDS declares. The list is never destroyed,
/// because threads of the bus may still read records while static objects are destroyed.
#define TELVANE_DEFINE_RECORD(Class)                                                                         \
    const ::Telvane::RecordTable& Class::recordTable()                                                       \
    {                                                                                                        \
        static std::atomic<const ::Telvane::RecordTable*> list{nullptr};                                     \
        const ::Telvane::RecordTable* const created = list.load(std::memory_order_acquire);                  \
        const auto describe = [](::Telvane::TelvaneDataTypeBase& prototype) {                                \
            return static_cast<Class&>(prototype).newRecordTable();                                          \
        };                                                                                                   \
        return created != nullptr                                                                            \
                   ? *created                                                                                \
                   : ::Telvane::RecordTable::create(list, &::Telvane::Detail::newRecord<Class>, describe,    \
                                                    typeid(Class));                                          \
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

/// Defines the operations that the two macros above share.
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
        return ::Telvane::Detail::newRecord<Class>();                                                        \
    }
