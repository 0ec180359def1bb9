#pragma once

// A disk that loses power. It notes what is done to the files of a folder, and makes the files that may be there after a
// power cut at any of these moments.
//
// What was synchronised stays. Of what came later, any part may have reached the disk, in any order: each sector of 512
// bytes may be new, old, new up to a byte, or garbage, and a new size may come without its bytes. A name may be missing
// or still there until its folder is synchronised. As SQLite does, the model trusts a disk with the bytes next to those
// that are written.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TelvaneArchive::Testing
{

class RecordedDisk
{
public:
    enum class Kind
    {
        Make,
        MakeFolder,
        Write,
        Truncate,
        Sync,
        SyncFolder,
        Remove,
    };
    struct Operation
    {
        Kind kind;
        std::string path; ///< within the folder; empty for the folder itself
        std::size_t offset = 0;
        std::string data = {};
    };

    /// Begins with the files that are there, which have been synchronised.
    void start(const std::string& folder)
    {
        m_folder = folder;
        m_operations.clear();
        m_first.clear();
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
            const std::string path = entry.path().string().substr(folder.size() + 1);
            if (entry.is_directory()) {
                m_first.push_back({Kind::MakeFolder, path});
            } else if (isKept(path)) {
                std::ifstream file(entry.path(), std::ios::binary);
                m_first.push_back({Kind::Make, path});
                m_first.push_back(
                    {Kind::Write, path, 0, std::string(std::istreambuf_iterator<char>(file), {})});
                m_first.push_back({Kind::Sync, path});
            }
        }
        m_isRecording = true;
    }
    void stop() { m_isRecording = false; }
    bool isRecording() const { return m_isRecording; }

    void note(Kind kind, std::string_view path, std::size_t offset = 0, std::string_view data = {})
    {
        if (!m_isRecording || path.substr(0, m_folder.size()) != m_folder) {
            return;
        }
        const std::string within(path.substr(std::min(path.size(), m_folder.size() + 1)));
        if (within.empty() || isKept(within)) {
            m_operations.push_back({kind, within, offset, std::string(data)});
        }
    }

    const std::vector<Operation>& first() const { return m_first; }
    const std::vector<Operation>& operations() const { return m_operations; }

private:
    /// A lock and shared memory mean nothing after a start of the machine.
    static bool isKept(std::string_view path)
    {
        const auto endsWith = [path](std::string_view end) {
            return path.size() >= end.size() && path.substr(path.size() - end.size()) == end;
        };
        return !endsWith("-shm") && !endsWith(".lock");
    }

    std::string m_folder;
    std::vector<Operation> m_first;
    std::vector<Operation> m_operations;
    bool m_isRecording = false;
};

/// Goes through the operations of a disk, and makes the files that a power cut may leave.
class PowerCut
{
public:
    explicit PowerCut(const RecordedDisk& disk) : m_disk(std::make_shared<const RecordedDisk>(disk))
    {
        for (const Operation& operation : m_disk->first()) {
            apply(operation);
        }
        for (auto& [path, inodes] : m_names) {
            inodes.erase(inodes.begin(), inodes.end() - 1);
        }
    }

    /// \param count  operations before the cut, not fewer than last time
    void advance(std::size_t count)
    {
        for (; m_next < count; ++m_next) {
            apply(m_disk->operations()[m_next]);
        }
    }

    void write(const std::filesystem::path& folder, unsigned seed)
    {
        m_random.seed(seed);
        constexpr unsigned kChances[] = {0, 10, 50, 90, 100}; // %
        m_chance = kChances[m_random() % 5];
        std::map<std::string, std::size_t> names; // in their order, folders before what is in them
        for (const auto& [path, inodes] : m_names) {
            const std::size_t inode = m_chance == 0 ? inodes.front() : inodes[m_random() % inodes.size()];
            const std::size_t slash = path.rfind('/');
            if (inode != kNone && (slash == std::string::npos || names.count(path.substr(0, slash)) != 0)) {
                names[path] = inode;
            }
        }
        for (const auto& [path, inode] : names) {
            if (inode == kFolder) {
                std::filesystem::create_directory(folder / path);
            } else {
                const std::string bytes = survivingOf(m_files[inode]);
                std::ofstream(folder / path, std::ios::binary) << bytes;
            }
        }
    }

private:
    using Operation = RecordedDisk::Operation;
    using Kind = RecordedDisk::Kind;
    static constexpr std::size_t kNone = 0;
    static constexpr std::size_t kFolder = 1;
    static constexpr std::size_t kSector = 512;

    struct File
    {
        std::string synchronised;
        std::vector<const Operation*> later;
    };

    static void put(std::string& bytes, std::size_t offset, std::string_view data)
    {
        bytes.resize(std::max(bytes.size(), offset + data.size()));
        std::copy(data.begin(), data.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
    }

    void apply(const Operation& operation)
    {
        std::vector<std::size_t>& inodes = m_names.try_emplace(operation.path, 1, kNone).first->second;
        switch (operation.kind) {
        case Kind::Make:
            m_files.emplace_back();
            inodes.push_back(m_files.size() - 1);
            break;
        case Kind::MakeFolder:
            inodes.push_back(kFolder);
            break;
        case Kind::Remove:
            inodes.push_back(kNone);
            break;
        case Kind::Write:
        case Kind::Truncate:
            m_files[inodes.back()].later.push_back(&operation);
            break;
        case Kind::Sync: {
            File& file = m_files[inodes.back()];
            for (const Operation* const later : file.later) {
                if (later->kind == Kind::Write) {
                    put(file.synchronised, later->offset, later->data);
                } else {
                    file.synchronised.resize(later->offset);
                }
            }
            file.later.clear();
            break;
        }
        case Kind::SyncFolder:
            for (auto& [path, all] : m_names) {
                const std::size_t slash = path.rfind('/');
                if ((slash == std::string::npos ? "" : path.substr(0, slash)) == operation.path) {
                    all.erase(all.begin(), all.end() - 1);
                }
            }
            break;
        }
    }

    std::string survivingOf(const File& file)
    {
        std::string bytes = file.synchronised;
        for (const Operation* const later : file.later) {
            if (later->kind == Kind::Write) {
                putSectors(bytes, *later);
            } else if (m_random() % 100 < m_chance) {
                bytes.resize(later->offset);
            }
        }
        return bytes;
    }

    void putSectors(std::string& bytes, const Operation& operation)
    {
        const std::string_view data = operation.data;
        if (m_chance != 0 && m_random() % 2 == 0) {
            bytes.resize(std::max(bytes.size(), operation.offset + data.size()));
        }
        for (std::size_t done = 0; done < data.size();) {
            const std::size_t offset = operation.offset + done;
            std::string piece(data.substr(done, kSector - offset % kSector));
            done += piece.size();
            if (m_random() % 100 < m_chance) {
                put(bytes, offset, piece);
            } else if (m_chance != 0 && m_random() % 4 == 0) {
                put(bytes, offset, piece.substr(0, m_random() % piece.size()));
            } else if (m_chance != 0 && m_random() % 4 == 0) {
                for (char& byte : piece) {
                    byte = static_cast<char>(m_random());
                }
                put(bytes, offset, piece);
            }
        }
    }

    std::shared_ptr<const RecordedDisk> m_disk; ///< what it was
    std::size_t m_next = 0;
    std::map<std::string, std::vector<std::size_t>>
        m_names;                  ///< what a name may mean, since its folder was synchronised
    std::vector<File> m_files{2}; ///< kNone and kFolder are none
    std::mt19937 m_random;
    unsigned m_chance = 0; ///< % of what was not synchronised that survives
};

} // namespace TelvaneArchive::Testing
