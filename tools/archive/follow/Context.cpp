#include "archive/follow/Context.h"

#include "common/support/HumanReadable.h"

#include <fstream>

namespace TelvaneArchive
{

bool Context::isContext(Column column)
{
    return infoOf(column).use == ColumnUse::Context;
}

std::string Context::read(const std::string& text, Column& column, Value& value)
{
    const std::size_t equals = text.find('=');
    const auto found = findColumn(text.substr(0, equals));
    if (equals == std::string::npos || !found || !isContext(*found)) {
        std::string names;
        for (const Column known : allColumns()) {
            names += isContext(known) ? std::string(names.empty() ? "" : ", ") + infoOf(known).name : "";
        }
        return "\"" + text + "\" is not NAME=VALUE with one of " + names;
    }
    column = *found;
    const std::string content = text.substr(equals + 1);
    if (content.empty()) {
        value = Value();
    } else if (infoOf(column).type == ColumnType::Text) {
        value = content;
    } else {
        double number = 0.0;
        if (!TelvaneTool::readNumber(content, number)) {
            return "\"" + content + "\" is not a number";
        }
        value = number;
    }
    return {};
}

std::string Context::add(const std::string& text)
{
    Column column = Column::Uid;
    Value value;
    std::string error = read(text, column, value);
    if (error.empty()) {
        m_values.emplace_back(column, value);
    }
    return error;
}

std::string Context::apply(Weld& weld) const
{
    for (const auto& [column, value] : m_values) {
        weld[column] = value;
    }
    if (m_file.empty()) {
        return {};
    }
    std::ifstream file(m_file);
    if (!file) {
        return m_file + ": cannot be read";
    }
    std::string errors;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        Column column = Column::Uid;
        Value value;
        const std::string error = read(line, column, value);
        if (error.empty()) {
            weld[column] = value;
        } else {
            errors = m_file + ": " + error;
        }
    }
    return errors;
}

} // namespace TelvaneArchive
