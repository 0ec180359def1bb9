#pragma once

namespace Telvane::Testing
{

/// While one exists, the exchanges of the clients in this process may take as long as kTimeout, and not only
/// their second: then a test does not fail because the machine stalls. A test of a time-out ends it first.
class PatientExchanges
{
public:
    PatientExchanges() noexcept;
    PatientExchanges(const PatientExchanges&) = delete;
    PatientExchanges& operator=(const PatientExchanges&) = delete;
    ~PatientExchanges();
};

} // namespace Telvane::Testing
