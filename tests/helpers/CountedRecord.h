#pragma once

#include <Telvane/TelvaneDataTypeBase.h>

#include <atomic>

namespace Telvane::Testing
{

/// Knows how many of its kind live.
class Counted : public TelvaneDataTypeBase
{
public:
    inline static std::atomic<int> living{0};

    Counted() { ++living; }
    Counted(const Counted& other) : TelvaneDataTypeBase(other) { ++living; }
    Counted& operator=(const Counted&) = default;
    ~Counted() override { --living; }
    TelvaneDataTypeBase* BuildNewDataType() const override { return new Counted; }
};

} // namespace Telvane::Testing
