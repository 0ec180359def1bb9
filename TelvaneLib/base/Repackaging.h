#pragma once

// How a writer that keeps trees and the engine that packages records by their lists find each other, past
// operations whose arguments are fixed.

#include <cjson/cJSON.h>

namespace Telvane
{

class TelvaneDataTypeBase;

/// While it lives, packaging \p record on this thread is watched, or goes into the tree of an earlier one.
class Repackaging
{
public:
    /// \param tree of an earlier record of the same class, to be used again; null to only watch
    Repackaging(const TelvaneDataTypeBase& record, cJSON* tree);
    ~Repackaging();
    Repackaging(const Repackaging&) = delete;
    Repackaging& operator=(const Repackaging&) = delete;

    /// Asked by the engine.
    /// \param exactClass whether the list that it works on is that of the object's very own class
    /// \return whether \p output is an earlier tree that is to be used again
    static bool begins(const TelvaneDataTypeBase& record, const cJSON* output, bool exactClass);

    /// \return whether the record was packaged by the list of its very own class, into a tree that held nothing
    /// else. If not, a tree that was to be used again is spoilt.
    bool listTellsAll() const { return m_listTellsAll; }

private:
    const TelvaneDataTypeBase& m_record;
    cJSON* const m_tree;
    const cJSON* const m_last; ///< of m_tree's members, before
    Repackaging* const m_outer;
    bool m_listTellsAll = false;
};

} // namespace Telvane
