// The database comes first: sample files only grow, so they have whatever the copied index names. Retention may delete
// samples in between; those are then missing in the copy, as they are in the archive.

#include "archive/reader/ArchiveCopy.h"

#include "archive/samples/SampleFile.h"
#include "common/support/FileDescriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace TelvaneArchive
{

namespace
{

Status synchronise(const std::string& path)
{
    const TelvaneTool::FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return file.isOpen() && fsync(file.get()) == 0 ? Status() : systemError(path, errno);
}

/// Copies a file, unless retention deletes it meanwhile.
Status copySampleFile(const std::filesystem::path& from, const std::string& to)
{
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::file_type type = fs::status(from, error).type();
    if (type == fs::file_type::none) {
        return systemError(from, error.value());
    }
    if (type != fs::file_type::regular) {
        return {}; // deleted, or not a sample file, such as lost+found
    }
    fs::copy_file(from, to, error);
    if (!error) {
        return synchronise(to);
    }
    std::error_code unknown;
    if (error == std::errc::no_such_file_or_directory && !fs::exists(from, unknown) && !unknown) {
        return {};
    }
    return systemError(to, error.value());
}

Status copySamples(const std::string& from, const std::string& to)
{
    namespace fs = std::filesystem;
    std::error_code error;
    if (fs::create_directories(to, error); error) {
        return systemError(to, error.value());
    }
    Status status;
    for (fs::directory_iterator entry(from, error); !error && status && entry != fs::directory_iterator();
         entry.increment(error)) {
        status = copySampleFile(entry->path(), to + "/" + entry->path().filename().string());
    }
    const bool none = error == std::errc::no_such_file_or_directory; // no weld has samples
    return error && !none ? systemError(from, error.value()) : status;
}

/// Deletes the verdicts that wait for the bus: the archive publishes them, and its copy must not do it again.
Status forgetUnpublished(const std::string& path)
{
    Status status;
    std::unique_ptr<Database> copy = openSqlite(path, Database::Access::ReadOnly, status);
    std::vector<Row> rows;
    status = status ? copy->run("SELECT count(*) FROM sqlite_master WHERE name = 'unpublished'", {}, &rows)
                    : status;
    if (!status || wholeOf(rows[0][0]) == 0) { // an archive of an older version has none
        return status;
    }
    rows.clear();
    status = copy->run("SELECT count(*) FROM unpublished", {}, &rows);
    if (!status || wholeOf(rows[0][0]) == 0) { // the log is not needed, which not every file system can have
        return status;
    }
    copy.reset();
    copy = openSqlite(path, Database::Access::ReadWrite, status);
    status = status ? copy->run("DELETE FROM unpublished") : status;
    rows.clear();
    status = status ? copy->run("PRAGMA journal_mode = DELETE", {}, &rows) : status;
    if (status && (rows.empty() || textOf(rows[0][0]) != "delete")) {
        status = {Status::Code::Failed, path + ": the log cannot be closed"};
    }
    return status;
}

void deleteDatabase(const std::string& path)
{
    for (const char* const end : {"", "-wal", "-shm", "-journal"}) {
        unlink((path + end).c_str());
    }
}

} // namespace

Status copyArchive(ArchiveReader& reader, const std::string& from, const std::string& to, bool samples)
{
    const std::string unfinished = to + ".unfinished";
    std::error_code error;
    if (std::filesystem::exists(to, error) || std::filesystem::exists(sampleFolder(to), error)) {
        return systemError(to, EEXIST);
    }
    deleteDatabase(unfinished);
    Status status = reader.database().run("VACUUM INTO $1", {unfinished});
    status = status ? forgetUnpublished(unfinished) : status;
    status = status && samples ? copySamples(sampleFolder(from), sampleFolder(to)) : status;
    status = status ? synchronise(unfinished) : status;
    if (status && rename(unfinished.c_str(), to.c_str()) != 0) {
        status = systemError(to, errno);
    }
    if (!status) {
        deleteDatabase(unfinished);
        std::filesystem::remove_all(sampleFolder(to), error);
    }
    return status;
}

} // namespace TelvaneArchive
