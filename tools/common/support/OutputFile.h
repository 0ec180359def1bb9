#pragma once

#include <string>
#include <string_view>

namespace TelvaneTool
{

/// Writes a file that appears as a whole: into a temporary file in the same folder, which gets its name in
/// commit(). Until then, and after any failure, a file of that name keeps its contents.
///
/// A device or pipe is written directly. Errors are system error numbers.
class OutputFile
{
public:
    OutputFile() = default;
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// \param replace  false to fail with `EEXIST` if the file exists, now or in commit()
    /// \return 0 or an error number
    int open(const std::string& path, bool replace = true);

    /// \return 0 or an error number
    int write(std::string_view data);

    /// Has the disk store the data, closes the file and gives it its name.
    /// \return 0 or an error number
    int commit();

    /// Gives the file its name right away, for one that grows while others read it.
    /// \return 0 or an error number
    int publish();

    int descriptor() const { return m_fd; }

    /// Gives up the descriptor, which the caller has to close.
    int release();

private:
    void discard();

    std::string m_path;
    std::string m_temporary; ///< empty if written directly, or published
    bool m_replace = true;
    int m_fd = -1;
};

/// \return true if both names are the same existing file
bool isSameFile(const std::string& first, const std::string& second);

} // namespace TelvaneTool
