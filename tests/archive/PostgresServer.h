#pragma once

// A real PostgreSQL in a directory of its own. It refuses to run as root, so root starts it as the user of Debian's
// package.

#include "archive/database/Database.h"
#include "helpers/ProcessTestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace TelvaneArchive::Testing
{

class PostgresServer
{
public:
    PostgresServer()
    {
        std::filesystem::create_directory(data());
        if (geteuid() == 0) {
            EXPECT_EQ(
                std::system(("chmod 711 " + m_directory.path("") + " && chown postgres " + data()).c_str()),
                0);
        }
        EXPECT_TRUE(run("initdb -D " + data() + " -U postgres -A trust -N -E UTF8 --locale=C"));
    }

    void start()
    {
        ASSERT_TRUE(run("pg_ctl -D " + data() + " -w -l " + data() + "/log -o \"-k " + data() +
                        " -c listen_addresses= -c fsync=off\" start"));
    }
    void stop() { run("pg_ctl -D " + data() + " -m immediate stop"); }

    std::string location() const { return "postgresql://postgres@/postgres?host=" + data(); }

    /// Makes an empty database.
    void clear()
    {
        Status status;
        const auto database = openPostgres(location(), Database::Access::ReadWrite, status);
        ASSERT_TRUE(database) << status.text;
        ASSERT_TRUE(database->run("DROP SCHEMA public CASCADE"));
        ASSERT_TRUE(database->run("CREATE SCHEMA public"));
    }

private:
    std::string data() const { return m_directory.path("db"); }
    static bool run(const std::string& command)
    {
        const std::string user =
            geteuid() == 0 ? "setpriv --reuid postgres --regid postgres --clear-groups " : "";
        const std::string line = "cd / && PATH=/usr/lib/postgresql/15/bin:$PATH && " + user +
                                 "env PATH=$PATH " + command + " >/dev/null 2>&1";
        return std::system(line.c_str()) == 0;
    }

    Telvane::Testing::TemporaryDirectory m_directory;
};

} // namespace TelvaneArchive::Testing
