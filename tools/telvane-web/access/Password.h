#pragma once

#include <string>

namespace TelvaneTool
{

/// Hashes a password with Argon2id, so that the file with the hash does not give the password away.
/// \return the hash as text, with its salt and its costs; empty if there is not enough memory
std::string hashPassword(const std::string& password);

/// Result of verifyPassword().
enum class PasswordCheck
{
    Right,
    Wrong,
    Unknown, ///< there is not enough memory
};

/// Takes as long as hashPassword(), and the same 7 MiB.
PasswordCheck verifyPassword(const std::string& password, const std::string& hash);

/// Reads a file that contains a hash.
/// \param[out] error  set on failure
/// \return the hash
std::string readPasswordFile(const std::string& path, std::string& error);

/// Asks for a password, on the terminal or on standard input, and writes its hash to a file that only its owner can read.
/// \return an exit code
int writePasswordFile(const std::string& path);

} // namespace TelvaneTool
