// Parameters and results travel in binary form where text would cost: bytes would double as hexadecimal text, and
// numbers would be printed and parsed. Whole numbers are sent as int8, numbers as float8.

#include "archive/database/Database.h"

#include <endian.h>
#include <libpq-fe.h>

#include <cstring>

namespace TelvaneArchive
{

namespace
{

// Types of PostgreSQL by their numbers, which are fixed (catalog/pg_type.dat).
constexpr Oid kBool = 16;
constexpr Oid kBytes = 17;
constexpr Oid kInt8 = 20;
constexpr Oid kInt2 = 21;
constexpr Oid kInt4 = 23;
constexpr Oid kText = 25;
constexpr Oid kFloat4 = 700;
constexpr Oid kFloat8 = 701;

struct ConnectionDeleter
{
    void operator()(PGconn* connection) const { PQfinish(connection); }
};
struct ResultDeleter
{
    void operator()(PGresult* result) const { PQclear(result); }
};
using Result = std::unique_ptr<PGresult, ResultDeleter>;

std::string bigEndian(std::uint64_t bits)
{
    bits = htobe64(bits);
    std::string bytes(sizeof bits, '\0');
    std::memcpy(bytes.data(), &bits, sizeof bits);
    return bytes;
}

std::string trimmed(std::string text)
{
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

/// The parameters of one statement in the form that the library takes.
class Parameters
{
public:
    explicit Parameters(const Row& row)
    {
        m_storage.reserve(row.size());
        for (const Value& value : row) {
            add(value);
        }
    }

    int count() const { return static_cast<int>(m_values.size()); }
    const Oid* types() const { return m_types.data(); }
    const char* const* values() const { return m_values.data(); }
    const int* lengths() const { return m_lengths.data(); }
    const int* formats() const { return m_formats.data(); }

private:
    void add(const Value& value)
    {
        if (const auto* whole = std::get_if<std::int64_t>(&value)) {
            add(kInt8, bigEndian(static_cast<std::uint64_t>(*whole)));
        } else if (const auto* number = std::get_if<double>(&value)) {
            std::uint64_t bits = 0;
            std::memcpy(&bits, number, sizeof bits);
            add(kFloat8, bigEndian(bits));
        } else if (const auto* text = std::get_if<std::string>(&value)) {
            add(kText, *text);
        } else if (const auto* blob = std::get_if<Blob>(&value)) {
            add(kBytes, blob->bytes);
        } else {
            m_types.push_back(0);
            m_values.push_back(nullptr);
            m_lengths.push_back(0);
            m_formats.push_back(1);
        }
    }
    void add(Oid type, std::string bytes)
    {
        m_storage.push_back(std::move(bytes));
        m_types.push_back(type);
        m_values.push_back(m_storage.back().data());
        m_lengths.push_back(static_cast<int>(m_storage.back().size()));
        m_formats.push_back(1);
    }

    std::vector<std::string> m_storage;
    std::vector<Oid> m_types;
    std::vector<const char*> m_values;
    std::vector<int> m_lengths;
    std::vector<int> m_formats;
};

Value readValue(const PGresult* result, int row, int column)
{
    if (PQgetisnull(result, row, column) != 0) {
        return {};
    }
    const std::string bytes(PQgetvalue(result, row, column),
                            static_cast<std::size_t>(PQgetlength(result, row, column)));
    std::uint64_t bits = 0;
    for (const char byte : bytes.substr(0, sizeof bits)) {
        bits = bits << 8U | static_cast<unsigned char>(byte);
    }
    switch (PQftype(result, column)) {
    case kBool:
        return static_cast<std::int64_t>(bits);
    case kInt2:
        return static_cast<std::int64_t>(static_cast<std::int16_t>(bits));
    case kInt4:
        return static_cast<std::int64_t>(static_cast<std::int32_t>(bits));
    case kInt8:
        return static_cast<std::int64_t>(bits);
    case kFloat4: {
        float number = 0.0F;
        const auto low = static_cast<std::uint32_t>(bits);
        std::memcpy(&number, &low, sizeof number);
        return static_cast<double>(number);
    }
    case kFloat8: {
        double number = 0.0;
        std::memcpy(&number, &bits, sizeof number);
        return number;
    }
    case kBytes:
        return Blob{bytes};
    default:
        return bytes;
    }
}

class PostgresDatabase : public Database
{
public:
    explicit PostgresDatabase(std::unique_ptr<PGconn, ConnectionDeleter> connection)
        : m_connection(std::move(connection))
    {}

    Kind kind() const override { return Kind::Postgres; }

    Status run(const Sql& statement, const Row& parameters, std::vector<Row>* rows) override
    {
        const Parameters sent(parameters);
        const Result result(PQexecParams(m_connection.get(), statement.text().c_str(), sent.count(),
                                         sent.types(), sent.values(), sent.lengths(), sent.formats(),
                                         kBinary));
        const ExecStatusType outcome = PQresultStatus(result.get());
        if (outcome != PGRES_COMMAND_OK && outcome != PGRES_TUPLES_OK) {
            return failure(result.get());
        }
        if (rows != nullptr && outcome == PGRES_TUPLES_OK) {
            for (int i = 0; i < PQntuples(result.get()); ++i) {
                readRow(result.get(), i, rows->emplace_back());
            }
        }
        return {};
    }

    /// Takes the rows from the connection one by one, so that those of a large table need not fit into memory.
    Status each(const Sql& statement, const Row& parameters,
                const std::function<void(const Row& row)>& take) override
    {
        const Parameters sent(parameters);
        if (PQsendQueryParams(m_connection.get(), statement.text().c_str(), sent.count(), sent.types(),
                              sent.values(), sent.lengths(), sent.formats(), kBinary) == 0) {
            return failure(nullptr);
        }
        PQsetSingleRowMode(m_connection.get());
        Status status;
        Row row;
        while (const Result result{PQgetResult(m_connection.get())}) {
            const ExecStatusType outcome = PQresultStatus(result.get());
            if (outcome == PGRES_SINGLE_TUPLE) {
                readRow(result.get(), 0, row);
                take(row);
            } else if (outcome != PGRES_COMMAND_OK && outcome != PGRES_TUPLES_OK) {
                status = failure(result.get());
            }
        }
        return status;
    }

private:
    static constexpr int kBinary = 1;

    static void readRow(const PGresult* result, int number, Row& row)
    {
        row.clear();
        for (int i = 0; i < PQnfields(result); ++i) {
            row.push_back(readValue(result, number, i));
        }
    }

    Status failure(const PGresult* result) const
    {
        const std::string text = trimmed(PQerrorMessage(m_connection.get()));
        if (PQstatus(m_connection.get()) != CONNECTION_OK) {
            return {Status::Code::Lost, text};
        }
        const char* state = result != nullptr ? PQresultErrorField(result, PG_DIAG_SQLSTATE) : nullptr;
        const std::string kind = state != nullptr ? std::string(state).substr(0, 2) : std::string();
        if (state != nullptr && std::string(state) == "53100") {
            return {Status::Code::Full, text};
        }
        if (state != nullptr && std::string(state) == "57014") {
            return {Status::Code::Late, text};
        }
        // 57: the server is shutting down; 08: the connection; 40: the transaction may be repeated.
        const bool passes = kind == "57" || kind == "08" || kind == "40" || kind == "53";
        return {passes ? Status::Code::Lost : Status::Code::Refused, text};
    }

    std::unique_ptr<PGconn, ConnectionDeleter> m_connection;
};

} // namespace

std::unique_ptr<Database> openPostgres(const std::string& location, Database::Access access, Status& status)
{
    // A server that is gone without a word is noticed within seconds.
    const char* const keys[] = {"dbname",           "connect_timeout",     "tcp_user_timeout",
                                "keepalives_idle",  "keepalives_interval", "keepalives_count",
                                "application_name", "client_encoding",     nullptr};
    const char* const values[] = {location.c_str(),  "5",    "10000", "10", "5", "3",
                                  "telvane-archive", "UTF8", nullptr};
    constexpr int kExpandLocation = 1;
    std::unique_ptr<PGconn, ConnectionDeleter> connection(PQconnectdbParams(keys, values, kExpandLocation));
    if (PQstatus(connection.get()) != CONNECTION_OK) {
        status = {Status::Code::Lost, trimmed(PQerrorMessage(connection.get()))};
        return nullptr;
    }
    auto database = std::make_unique<PostgresDatabase>(std::move(connection));
    // Compiling a question about a few rows of many takes longer than answering it.
    database->run("SET jit = off", {}, nullptr);
    // The server notices soon, too, that a module is gone, whose transaction may lock a block.
    database->run(
        "SELECT set_config('tcp_keepalives_idle', '10', false), "
        "set_config('tcp_keepalives_interval', '5', false), "
        "set_config('tcp_keepalives_count', '3', false), set_config('tcp_user_timeout', '60000', false)",
        {}, nullptr);
    status = access == Database::Access::ReadOnly
                 ? database->run("SET default_transaction_read_only = on", {}, nullptr)
                 : database->run("SET client_min_messages = warning", {}, nullptr);
    if (!status) {
        return nullptr;
    }
    return database;
}

} // namespace TelvaneArchive
