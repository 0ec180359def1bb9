#pragma once

// A file system for SQLite that notes on a RecordedDisk what SQLite does, and leaves the doing to the usual one. While it
// exists, databases are opened with it.

#include "archive/RecordedDisk.h"

#include <sqlite3.h>
#include <unistd.h>

#include <new>

namespace TelvaneArchive::Testing
{

class RecordingVfs
{
public:
    explicit RecordingVfs(RecordedDisk& disk)
        : m_real(sqlite3_vfs_find(nullptr)), m_disk(disk), m_vfs(*m_real)
    {
        m_vfs.szOsFile = static_cast<int>(sizeof(File)) + m_real->szOsFile;
        m_vfs.zName = "recording";
        m_vfs.pAppData = this;
        m_vfs.xOpen = &openFile;
        m_vfs.xDelete = &deleteFile;
        // The others get what they need from the real one.
        m_vfs.xAccess = [](sqlite3_vfs* vfs, const char* name, int flags, int* result) {
            return of(vfs).m_real->xAccess(of(vfs).m_real, name, flags, result);
        };
        m_vfs.xFullPathname = [](sqlite3_vfs* vfs, const char* name, int size, char* path) {
            return of(vfs).m_real->xFullPathname(of(vfs).m_real, name, size, path);
        };
        constexpr int kDefault = 1;
        sqlite3_vfs_register(&m_vfs, kDefault);
    }
    ~RecordingVfs() { sqlite3_vfs_unregister(&m_vfs); }
    RecordingVfs(const RecordingVfs&) = delete;
    RecordingVfs& operator=(const RecordingVfs&) = delete;

private:
    using Kind = RecordedDisk::Kind;

    struct File : sqlite3_file
    {
        RecordingVfs* vfs;
        const char* name; ///< null for a temporary file; SQLite keeps it until the file is closed
        bool syncsFolder;

        /// SQLite asks for room for both.
        sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
        void note(Kind kind, std::size_t offset = 0, std::string_view data = {}) const
        {
            if (name != nullptr) {
                vfs->m_disk.note(kind, name, offset, data);
            }
        }
    };
    static_assert(sizeof(File) % alignof(sqlite3_int64) == 0, "the other file needs to be aligned");

    static RecordingVfs& of(sqlite3_vfs* vfs) { return *static_cast<RecordingVfs*>(vfs->pAppData); }
    static File& of(sqlite3_file* file) { return *static_cast<File*>(file); }
    static sqlite3_file* real(sqlite3_file* file) { return of(file).real(); }
    static const sqlite3_io_methods& methods(sqlite3_file* file) { return *real(file)->pMethods; }

    static int openFile(sqlite3_vfs* vfs, const char* name, sqlite3_file* memory, int flags, int* outFlags)
    {
        File& file = *new (memory) File();
        file.vfs = &of(vfs);
        file.name = name;
        constexpr int kLogs = SQLITE_OPEN_WAL | SQLITE_OPEN_MAIN_JOURNAL | SQLITE_OPEN_SUPER_JOURNAL;
        const bool creates = (flags & SQLITE_OPEN_CREATE) != 0;
        file.syncsFolder = creates && (flags & kLogs) != 0; // as the file system of SQLite for Unix
        const bool isNew = creates && name != nullptr && access(name, F_OK) != 0;
        sqlite3_vfs* const other = file.vfs->m_real;
        const int result = other->xOpen(other, name, file.real(), flags, outFlags);
        file.pMethods = result == SQLITE_OK ? &kMethods : nullptr;
        if (result == SQLITE_OK && isNew) {
            file.note(Kind::Make);
        }
        return result;
    }

    static int deleteFile(sqlite3_vfs* vfs, const char* name, int syncsFolder)
    {
        sqlite3_vfs* const other = of(vfs).m_real;
        const bool was = access(name, F_OK) == 0;
        const int result = other->xDelete(other, name, syncsFolder);
        if (result == SQLITE_OK && was) {
            of(vfs).m_disk.note(Kind::Remove, name);
            if (syncsFolder != 0) {
                of(vfs).noteFolder(name);
            }
        }
        return result;
    }

    static int writeFile(sqlite3_file* file, const void* data, int size, sqlite3_int64 offset)
    {
        of(file).note(Kind::Write, static_cast<std::size_t>(offset),
                      {static_cast<const char*>(data), static_cast<std::size_t>(size)});
        return methods(file).xWrite(real(file), data, size, offset);
    }

    static int truncateFile(sqlite3_file* file, sqlite3_int64 size)
    {
        of(file).note(Kind::Truncate, static_cast<std::size_t>(size));
        return methods(file).xTruncate(real(file), size);
    }

    /// The kernel need not do it: there is no power cut but in the notes.
    static int syncFile(sqlite3_file* file, int)
    {
        of(file).note(Kind::Sync);
        if (of(file).syncsFolder) {
            of(file).vfs->noteFolder(of(file).name);
            of(file).syncsFolder = false;
        }
        return SQLITE_OK;
    }

    void noteFolder(std::string_view name) { m_disk.note(Kind::SyncFolder, name.substr(0, name.rfind('/'))); }

    static const sqlite3_io_methods kMethods;

    sqlite3_vfs* m_real;
    RecordedDisk& m_disk;
    sqlite3_vfs m_vfs;
};

inline const sqlite3_io_methods RecordingVfs::kMethods = {
    2, // with shared memory, without mapped files
    [](sqlite3_file* file) { return methods(file).xClose(real(file)); },
    [](sqlite3_file* file, void* data, int size, sqlite3_int64 offset) {
        return methods(file).xRead(real(file), data, size, offset);
    },
    &writeFile,
    &truncateFile,
    &syncFile,
    [](sqlite3_file* file, sqlite3_int64* size) { return methods(file).xFileSize(real(file), size); },
    [](sqlite3_file* file, int level) { return methods(file).xLock(real(file), level); },
    [](sqlite3_file* file, int level) { return methods(file).xUnlock(real(file), level); },
    [](sqlite3_file* file, int* result) { return methods(file).xCheckReservedLock(real(file), result); },
    [](sqlite3_file* file, int operation, void* argument) {
        return methods(file).xFileControl(real(file), operation, argument);
    },
    [](sqlite3_file* file) { return methods(file).xSectorSize(real(file)); },
    [](sqlite3_file* file) { return methods(file).xDeviceCharacteristics(real(file)); },
    [](sqlite3_file* file, int page, int size, int extend, void volatile** memory) {
        return methods(file).xShmMap(real(file), page, size, extend, memory);
    },
    [](sqlite3_file* file, int offset, int count, int flags) {
        return methods(file).xShmLock(real(file), offset, count, flags);
    },
    [](sqlite3_file* file) { methods(file).xShmBarrier(real(file)); },
    [](sqlite3_file* file, int deletes) { return methods(file).xShmUnmap(real(file), deletes); },
    nullptr,
    nullptr,
};

} // namespace TelvaneArchive::Testing
