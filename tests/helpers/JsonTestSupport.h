#pragma once

// JSON trees for tests, and cJSON's allocator when it is to fail.

#include <cjson/cJSON.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Telvane::Testing
{

struct TreeDeleter
{
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using Tree = std::unique_ptr<cJSON, TreeDeleter>;

/// \return the tree of \p text, which must be JSON
inline Tree parse(const std::string& text)
{
    Tree tree(cJSON_Parse(text.c_str()));
    if (tree == nullptr) {
        throw std::invalid_argument("not JSON: " + text);
    }
    return tree;
}

inline Tree emptyObject()
{
    return Tree(cJSON_CreateObject());
}

inline Tree emptyArray()
{
    return Tree(cJSON_CreateArray());
}

/// \return \p tree on one line, without blanks
inline std::string compact(const cJSON* tree)
{
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(tree), &cJSON_free);
    return text != nullptr ? text.get() : "";
}

inline std::string compact(const Tree& tree)
{
    return compact(tree.get());
}

/// \return \p tree as the library prints it for readers
inline std::string printed(const Tree& tree)
{
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_Print(tree.get()), &cJSON_free);
    return text != nullptr ? text.get() : "";
}

/// Lets cJSON's allocations fail after the next \p allowed ones.
class FailingAllocator
{
public:
    explicit FailingAllocator(int allowed)
    {
        remaining() = allowed;
        cJSON_Hooks hooks = {allocate, std::free};
        cJSON_InitHooks(&hooks);
    }
    FailingAllocator(const FailingAllocator&) = delete;
    FailingAllocator& operator=(const FailingAllocator&) = delete;
    ~FailingAllocator() { cJSON_InitHooks(nullptr); }

private:
    static int& remaining()
    {
        static int count = 0;
        return count;
    }
    static void* allocate(std::size_t size)
    {
        if (remaining() <= 0) {
            return nullptr;
        }
        --remaining();
        return std::malloc(size);
    }
};

/// A key, and its value as JSON.
using Member = std::pair<std::string, std::string>;
using Members = std::vector<Member>;

/// \return the object with these members, as JSON on one line
inline std::string textOf(const Members& members)
{
    std::string text = "{";
    for (const auto& [key, value] : members) {
        text.append(text.size() > 1 ? ",\"" : "\"").append(key).append("\":").append(value);
    }
    return text + "}";
}

} // namespace Telvane::Testing
