// SPDX-License-Identifier: MIT
#pragma once

#include <QList>

namespace Velmora::WorkflowCore {

// The walk shared by both exported iterators over a snapshot taken at creation. The snapshot
// is an implicitly shared copy of the list, so taking it costs nothing and later changes of
// the source list do not reach it.
template <typename T> class IteratorState
{
public:
    explicit IteratorState(const QList<T*>& snapshot) : m_snapshot(snapshot) {}

    bool MoveNext()
    {
        if (!m_started)
        {
            m_started = true;
            m_position = 0;
            return !m_snapshot.isEmpty();
        }
        if (m_position >= m_snapshot.size())
            return false;
        ++m_position;
        return m_position < m_snapshot.size();
    }

    T* GetCurrent() const
    {
        if (!m_started || m_position < 0 || m_position >= m_snapshot.size())
            return nullptr;
        return m_snapshot.at(m_position);
    }

    void Reset() { m_started = false; }

    const QList<T*>& Snapshot() const { return m_snapshot; }

private:
    QList<T*> m_snapshot;
    qsizetype m_position = 0;
    bool m_started = false;
};

} // namespace Velmora::WorkflowCore
