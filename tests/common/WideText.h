// SPDX-License-Identifier: MIT
#pragma once

// Small conversions between QString and the UTF-16 texts of the exported interface.

#include <VmWorkflowCore/VmWorkflowCoreExport.h>

#include <QString>

#include <functional>
#include <vector>

namespace VmWorkflowTest {

using Velmora::WorkflowCore::WideChar;

// A zero-terminated copy that lives as long as the object.
class Wide
{
public:
    explicit Wide(const QString& text) : m_units(text.utf16(), text.utf16() + text.size()) { m_units.push_back(0); }
    operator const WideChar*() const { return reinterpret_cast<const WideChar*>(m_units.data()); }

private:
    std::vector<char16_t> m_units;
};

// Reads a text through a getter that follows the text-out rule: length first, then the text.
inline QString ReadText(const std::function<int(WideChar*, int)>& getter)
{
    const int length = getter(nullptr, 0);
    std::vector<WideChar> buffer(static_cast<size_t>(length) + 1, WideChar(0x7777));
    const int copied = getter(buffer.data(), length + 1);
    return QString::fromUtf16(reinterpret_cast<const char16_t*>(buffer.data()), copied);
}

} // namespace VmWorkflowTest
