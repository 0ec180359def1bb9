// Samples go into a file by month, so that retention deletes a file and never rewrites one. A file begins with its
// mark; chunks follow without anything between them. The index in the database names only chunks that fdatasync()
// has confirmed, so after a crash whatever follows the last indexed chunk is either a whole chunk, which is indexed
// then, or torn, which is cut off.

#include "archive/samples/SampleFile.h"

#include "archive/samples/SampleCodec.h"
#include "common/support/Clock.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TelvaneArchive
{

namespace
{

constexpr std::string_view kMark = "Telvane samples\n";

bool readAt(int fd, std::int64_t offset, std::size_t size, std::string& bytes)
{
    bytes.resize(size);
    std::size_t done = 0;
    while (done < size) {
        const ssize_t got = ::pread(fd, bytes.data() + done, size - done,
                                    static_cast<off_t>(offset + static_cast<std::int64_t>(done)));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        done += static_cast<std::size_t>(got);
    }
    bytes.resize(done);
    return done == size;
}

Status syncFolder(const std::string& path)
{
    const TelvaneTool::FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // Some file systems, such as those of networks, cannot do this for a folder.
    if (!folder.isOpen() || fsync(folder.get()) == 0 || errno == EINVAL || errno == ENOTSUP ||
        errno == EROFS) {
        return {};
    }
    return systemError(path, errno);
}

} // namespace

Status SampleFile::open(const std::string& path)
{
    const std::string folder = path.substr(0, path.rfind('/'));
    if (::mkdir(folder.c_str(), 0777) != 0 && errno != EEXIST) {
        return systemError(folder, errno);
    }
    m_file = TelvaneTool::FileDescriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    struct stat status = {};
    if (!m_file.isOpen() || fstat(m_file.get(), &status) != 0) {
        const int error = errno;
        close();
        return systemError(path, error);
    }
    m_path = path;
    m_size = status.st_size;
    if (m_size < static_cast<std::int64_t>(kMark.size())) {
        m_size = 0;
        if (ftruncate(m_file.get(), 0) != 0) {
            return systemError(path, errno);
        }
        Place ignored;
        Status marked = append(kMark, ignored);
        if (!marked) {
            close();
            return marked;
        }
    }
    // Otherwise a power cut may take the name of the file, or that of its folder, and all samples with it. Also for a file
    // that is there: the process that made it may have been killed before it came here.
    Status synchronised = syncFolder(folder);
    synchronised = synchronised ? syncFolder(folder + "/..") : synchronised;
    if (!synchronised) {
        close();
    }
    return synchronised;
}

Status SampleFile::append(std::string_view chunk, Place& place)
{
    if (const int error = TelvaneTool::writeFully(m_file.get(), chunk); error != 0) {
        if (ftruncate(m_file.get(), static_cast<off_t>(m_size)) != 0) {
            close(); // what is torn stays in the file, but no index names it
        }
        return systemError(m_path, error);
    }
    place = {m_size, static_cast<std::int64_t>(chunk.size())};
    m_size += place.size;
    m_dirty = true;
    return {};
}

Status SampleFile::sync()
{
    if (m_dirty && fdatasync(m_file.get()) != 0) {
        return systemError(m_path, errno);
    }
    m_dirty = false;
    return {};
}

void SampleFile::close()
{
    m_file = TelvaneTool::FileDescriptor();
    m_size = 0;
    m_dirty = false;
}

void SampleFile::shorten(std::int64_t offset)
{
    if (ftruncate(m_file.get(), static_cast<off_t>(offset)) != 0) {
        close();
        return;
    }
    m_size = offset;
}

Status SampleFile::recover(std::int64_t offset,
                           const std::function<void(const Place& place, std::string_view chunk)>& take,
                           std::int64_t& removed)
{
    offset = std::max(offset, static_cast<std::int64_t>(kMark.size()));
    std::string bytes;
    while (offset < m_size) {
        readAt(m_file.get(), offset,
               static_cast<std::size_t>(std::min<std::int64_t>(m_size - offset, kMaxChunk)), bytes);
        ChunkHeader header;
        std::vector<Sample> samples;
        if (!decodeChunk(bytes, header, samples)) {
            break;
        }
        take({offset, header.size}, std::string_view(bytes).substr(0, header.size));
        offset += header.size;
    }
    removed = std::max<std::int64_t>(0, m_size - offset);
    if (removed != 0) {
        if (ftruncate(m_file.get(), static_cast<off_t>(offset)) != 0) {
            return systemError(m_path, errno);
        }
        m_size = offset;
        m_dirty = true;
    }
    return sync();
}

bool readFilePart(const std::string& path, const SampleFile::Place& place, std::string& bytes)
{
    if (place.offset < 0 || place.size <= 0 || place.size > static_cast<std::int64_t>(kMaxChunk)) {
        return false;
    }
    const TelvaneTool::FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return file.isOpen() && readAt(file.get(), place.offset, static_cast<std::size_t>(place.size), bytes);
}

std::string sampleFileName(std::int64_t nanoseconds)
{
    const auto seconds = static_cast<time_t>(nanoseconds / TelvaneTool::kSecond);
    std::tm parts = {};
    gmtime_r(&seconds, &parts);
    char name[64];
    std::strftime(name, sizeof name, "%Y-%m.samples", &parts);
    return name;
}

std::string sampleFolder(const std::string& databasePath)
{
    return databasePath + ".samples";
}

} // namespace TelvaneArchive
