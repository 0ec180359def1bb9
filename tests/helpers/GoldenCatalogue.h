#pragma once

// The independent table of all record classes (golden/catalogue.json) and the golden files made from it:
// each record as it prints with its defaults ("default") and with no field at its default ("filled").

#include <Telvane/RecordTable.h>

#include "helpers/TestPaths.h"
#include "support/JsonTree.h"

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace Telvane
{

struct GoldenField
{
    std::string key;
    FieldKind kind = FieldKind::Integer;
    std::string nestedClass;
    unsigned limit = 0;

    bool isArray() const { return kind >= FieldKind::FlagArray; }
};

struct GoldenClass
{
    std::string name;
    std::string base;
    bool isText = false; ///< stands in JSON as a string
    std::vector<GoldenField> fields;
};

inline void PrintTo(const GoldenClass& golden, std::ostream* stream)
{
    *stream << golden.name;
}

/// Without the table there is nothing to test and no way to go on.
[[noreturn]] inline void stopWithoutGolden(const std::string& path, const char* what)
{
    std::cerr << "cannot use golden file " << path << ": " << what << std::endl;
    std::abort();
}

inline std::string readGoldenFile(const std::string& name)
{
    const std::string path = sourceDirectory() + "/tests/golden/" + name;
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        stopWithoutGolden(path, "it cannot be opened");
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// \param form "default" or "filled"
inline std::string goldenText(const std::string& className, const std::string& form)
{
    return readGoldenFile("records/" + className + "." + form + ".json");
}

inline JsonTree goldenTree(const std::string& className, const std::string& form)
{
    JsonTree tree(cJSON_Parse(goldenText(className, form).c_str()));
    if (tree == nullptr) {
        stopWithoutGolden(className, "it is not JSON");
    }
    return tree;
}

inline FieldKind fieldKindByName(const std::string& name)
{
    static const std::map<std::string, FieldKind> kinds = {
        {"Integer", FieldKind::Integer},
        {"Number", FieldKind::Number},
        {"Flag", FieldKind::Flag},
        {"Text", FieldKind::Text},
        {"Record", FieldKind::Record},
        {"FlagArray", FieldKind::FlagArray},
        {"IntegerArray", FieldKind::IntegerArray},
        {"RecordArray", FieldKind::RecordArray},
        {"RecordVector", FieldKind::RecordVector},
    };
    return kinds.at(name);
}

inline std::string goldenMember(const cJSON* entry, const char* key)
{
    const char* const text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(entry, key));
    return text != nullptr ? text : "";
}

inline std::vector<GoldenClass> readGoldenCatalogue()
{
    const JsonTree table(cJSON_Parse(readGoldenFile("catalogue.json").c_str()));
    if (cJSON_GetArraySize(table.get()) == 0) {
        stopWithoutGolden("catalogue.json", "it is not an array of classes");
    }
    std::vector<GoldenClass> classes;
    const cJSON* entry = nullptr;
    cJSON_ArrayForEach(entry, table.get())
    {
        GoldenClass golden;
        golden.name = goldenMember(entry, "class");
        golden.base = goldenMember(entry, "base");
        golden.isText = cJSON_HasObjectItem(entry, "text") != 0;
        const cJSON* field = nullptr;
        cJSON_ArrayForEach(field, cJSON_GetObjectItemCaseSensitive(entry, "fields"))
        {
            const cJSON* const limit = cJSON_GetObjectItemCaseSensitive(field, "limit");
            golden.fields.push_back({goldenMember(field, "key"), fieldKindByName(goldenMember(field, "kind")),
                                     goldenMember(field, "class"),
                                     limit != nullptr ? static_cast<unsigned>(limit->valueint) : 0});
        }
        classes.push_back(golden);
    }
    return classes;
}

inline const std::vector<GoldenClass>& goldenCatalogue()
{
    static const std::vector<GoldenClass> catalogue = readGoldenCatalogue();
    return catalogue;
}

inline const GoldenClass& goldenClass(const std::string& name)
{
    for (const GoldenClass& golden : goldenCatalogue()) {
        if (golden.name == name) {
            return golden;
        }
    }
    stopWithoutGolden("catalogue.json", ("it has no class " + name).c_str());
}

/// \return whether an object of the class is one of \p ancestor too
inline bool goldenClassIsA(const GoldenClass& golden, const std::string& ancestor)
{
    return golden.name == ancestor || golden.base == ancestor ||
           (golden.base != "TelvaneDataTypeBase" && goldenClassIsA(goldenClass(golden.base), ancestor));
}

template <class Predicate>
std::vector<GoldenClass> goldenClassesWithField(Predicate predicate)
{
    std::vector<GoldenClass> found;
    for (const GoldenClass& golden : goldenCatalogue()) {
        for (const GoldenField& field : golden.fields) {
            if (predicate(field)) {
                found.push_back(golden);
                break;
            }
        }
    }
    return found;
}

} // namespace Telvane
