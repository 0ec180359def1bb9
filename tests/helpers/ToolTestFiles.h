#pragma once

// A directory of its own for each test, gone with it.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace TelvaneTool
{

class TestDirectory
{
public:
    TestDirectory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "telvane-test-XXXXXX").string();
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        m_path = pattern;
    }
    ~TestDirectory() { std::filesystem::remove_all(m_path); }
    TestDirectory(const TestDirectory&) = delete;
    TestDirectory& operator=(const TestDirectory&) = delete;

    std::string path(const std::string& name) const { return m_path / name; }

    /// \return the path of a new file
    std::string write(const std::string& name, const std::string& text) const
    {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }

private:
    std::filesystem::path m_path;
};

} // namespace TelvaneTool
