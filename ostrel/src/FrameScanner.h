// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

namespace Velmora::OstrelAdapter {

// Walks the bytes of one frame payload (a name, then a map of values) without building anything,
// so that a frame is judged before the stream reader sees it. Only the plain value types a hub
// message carries are accepted, and maps and lists may nest kMaxNestingDepth levels at most: a
// peer cannot exhaust the receiver's stack with a deeply nested value, make it allocate for
// counts the frame does not hold, or have the receiver look up type names it chose.
class FrameScanner
{
public:
    // The data map itself is level 1.
    static constexpr int kMaxNestingDepth = 32;

    // True when the payload is exactly one well-formed name and data map within the limits.
    static bool IsAcceptable(const char* payload, qsizetype size);

private:
    FrameScanner(const char* data, qsizetype size) : m_data(data), m_left(size) {}

    bool Skip(qsizetype count);
    bool ReadCount(quint32& value);
    bool SkipString();
    bool SkipBytes();
    bool SkipMap(int depth);
    bool SkipList(int depth);
    bool SkipValue(int depth);

    const char* m_data;
    qsizetype m_left;
};

} // namespace Velmora::OstrelAdapter
