// SPDX-License-Identifier: MIT
#pragma once

/// @file
/// Conveniences for Qt callers. The exported classes pass texts as zero-terminated UTF-16; these
/// turn a QString into such a text and read one back. Header-only: nothing here crosses the
/// library's boundary, so a caller built against any Qt 6 may use it.

#include <VmWorkflowCore/VmWorkflowCoreExport.h>

#include <QString>

#include <vector>

namespace Velmora::WorkflowCore {

/// A zero-terminated UTF-16 copy of a text, for every parameter of type `const WideChar*`. The
/// pointer it converts to stays valid as long as the object lives.
class WideText
{
public:
    /// Copies the text and adds the terminating zero.
    explicit WideText(const QString& text) : m_units(text.utf16(), text.utf16() + text.size())
    {
        m_units.push_back(0);
    }
    /// The copy, zero-terminated; valid while this object lives.
    operator const WideChar*() const { return reinterpret_cast<const WideChar*>(m_units.data()); }

private:
    std::vector<char16_t> m_units;
};

/// Reads a text through a getter that follows the interface's rule for texts: called as
/// `getter(nullptr, 0)` it returns the length in UTF-16 units; called with a buffer of length + 1
/// units it fills it and returns the units copied. No text, or a failed call, reads as empty.
template <typename Getter> QString ReadWideText(Getter&& getter)
{
    const int length = getter(nullptr, 0);
    if (length <= 0)
        return QString();
    std::vector<WideChar> buffer(static_cast<size_t>(length) + 1, WideChar(0));
    const int copied = getter(buffer.data(), length + 1);
    if (copied <= 0)
        return QString();
    // A getter that reports more than it was asked for shows as a trailing terminator, not as a
    // read past the buffer.
    return QString::fromUtf16(reinterpret_cast<const char16_t*>(buffer.data()), qMin(copied, length + 1));
}

/// A zero-terminated UTF-16 text filled in by the library; a null pointer reads as empty.
inline QString FromWideText(const WideChar* text)
{
    return text ? QString::fromUtf16(reinterpret_cast<const char16_t*>(text)) : QString();
}

} // namespace Velmora::WorkflowCore
