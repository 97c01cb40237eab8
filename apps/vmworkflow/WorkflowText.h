// SPDX-License-Identifier: MIT
#pragma once

// Reads texts of the exported interface into QString: ask for the length, then the text.

#include <VmWorkflowCore/Workflow.h>

#include <QString>

#include <vector>

namespace VmWorkflowTool {

using Velmora::WorkflowCore::WideChar;

template <typename Getter>
QString ReadText(Getter getter)
{
    const int length = getter(nullptr, 0);
    if (length <= 0)
        return QString();
    std::vector<WideChar> buffer(static_cast<size_t>(length) + 1);
    const int copied = getter(buffer.data(), length + 1);
    return QString::fromUtf16(reinterpret_cast<const char16_t*>(buffer.data()), copied);
}

// A zero-terminated UTF-16 copy that lives as long as the object.
class Wide
{
public:
    explicit Wide(const QString& text) : m_text(text) {}
    operator const WideChar*() const { return reinterpret_cast<const WideChar*>(m_text.utf16()); }

private:
    QString m_text;
};

// A zero-terminated UTF-16 text filled in by the library.
inline QString FromWide(const WideChar* text)
{
    return QString::fromUtf16(reinterpret_cast<const char16_t*>(text));
}

} // namespace VmWorkflowTool
