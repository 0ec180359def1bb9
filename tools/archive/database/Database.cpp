#include "archive/database/Database.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace TelvaneArchive
{

std::int64_t wholeOf(const Value& value)
{
    if (const auto* whole = std::get_if<std::int64_t>(&value)) {
        return *whole;
    }
    constexpr double kLimit = 9e18;
    const auto* number = std::get_if<double>(&value);
    return number != nullptr && *number > -kLimit && *number < kLimit ? static_cast<std::int64_t>(*number)
                                                                      : 0;
}

double numberOf(const Value& value)
{
    if (const auto* number = std::get_if<double>(&value)) {
        return *number;
    }
    const auto* whole = std::get_if<std::int64_t>(&value);
    return whole != nullptr ? static_cast<double>(*whole) : 0.0;
}

const std::string& textOf(const Value& value)
{
    static const std::string empty;
    const auto* text = std::get_if<std::string>(&value);
    return text != nullptr ? *text : empty;
}

const std::string& bytesOf(const Value& value)
{
    static const std::string empty;
    const auto* blob = std::get_if<Blob>(&value);
    return blob != nullptr ? blob->bytes : empty;
}

bool isNoRoom(int error)
{
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

Status systemError(const std::string& what, int error)
{
    return {isNoRoom(error) ? Status::Code::Full : Status::Code::Failed, what + ": " + std::strerror(error)};
}

Status Database::each(const Sql& statement, const Row& parameters,
                      const std::function<void(const Row& row)>& take)
{
    std::vector<Row> rows;
    Status status = run(statement, parameters, &rows);
    std::for_each(rows.begin(), rows.end(), take);
    return status;
}

Transaction::Transaction(Database& database)
    : m_database(database),
      m_begun(database.kind() == Database::Kind::Sqlite
                  ? database.run("BEGIN IMMEDIATE")
                  : database.run("BEGIN ISOLATION LEVEL READ COMMITTED")),
      m_open(static_cast<bool>(m_begun))
{}

Transaction::~Transaction()
{
    if (m_open) {
        m_database.run("ROLLBACK");
    }
}

Status Transaction::commit()
{
    Status status = m_database.run("COMMIT");
    m_open = m_open && !status;
    return status;
}

} // namespace TelvaneArchive
