// SPDX-License-Identifier: MIT
#include "util/TextOut.h"

#include <algorithm>
#include <cstring>

namespace Velmora::WorkflowCore {

static_assert(sizeof(WideChar) == sizeof(char16_t), "the exported interface carries UTF-16 code units");

int CopyTextOut(const QString& value, WideChar* buffer, int size)
{
    const int length = static_cast<int>(value.size());
    if (!buffer)
        return length;
    if (size < 1)
        return 0;
    const int copied = std::min(length, size - 1);
    if (copied > 0)
        std::memcpy(buffer, value.utf16(), static_cast<size_t>(copied) * sizeof(WideChar));
    buffer[copied] = 0;
    return copied;
}

QString TextIn(const WideChar* text)
{
    if (!text)
        return QString();
    return QString::fromUtf16(reinterpret_cast<const char16_t*>(text));
}

} // namespace Velmora::WorkflowCore
