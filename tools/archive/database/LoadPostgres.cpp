// Takes the place of the access to PostgreSQL, and loads it on demand. The library for it brings those of Kerberos and
// LDAP, which would take 3 MB of the module's memory even where the archive is a file.

#include "archive/database/PostgresModule.h"

#include <dlfcn.h>

#include <filesystem>

namespace TelvaneArchive
{

namespace
{

/// \param[out] problem  why there is no module
/// \return null if there is none
OpenPostgres* openModule(std::string& problem)
{
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        problem = "/proc/self/exe: " + error.message();
        return nullptr;
    }
    const std::string path = (program.parent_path() / TELVANE_POSTGRES_MODULE).lexically_normal();
    // Never closed: its libraries cannot be unloaded.
    void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* const function = module != nullptr ? dlsym(module, kOpenPostgres) : nullptr;
    if (function == nullptr) {
        problem =
            std::string("PostgreSQL needs the package telvane-archive of the same version: ") + dlerror();
    }
    return reinterpret_cast<OpenPostgres*>(function);
}

} // namespace

std::string loadPostgres()
{
    std::string problem;
    openModule(problem);
    return problem;
}

std::unique_ptr<Database> openPostgres(const std::string& location, Database::Access access, Status& status)
{
    std::string problem;
    OpenPostgres* const open = openModule(problem);
    if (open == nullptr) {
        status = Status::failed(Status::Code::Refused, problem);
        return nullptr;
    }
    return std::unique_ptr<Database>(open(location, access, status));
}

} // namespace TelvaneArchive
