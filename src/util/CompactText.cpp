// SPDX-License-Identifier: MIT
#include "util/CompactText.h"

namespace Velmora::WorkflowCore {

CompactText::CompactText(const QString& text)
{
    const qsizetype size = text.size();
    // constData(), not utf16(): the latter would make a null text an empty one.
    const char16_t* units = reinterpret_cast<const char16_t*>(text.constData());
    for (qsizetype i = 0; i < size; ++i)
    {
        if (units[i] > 0xFF)
        {
            m_wide = text;
            return;
        }
    }
    if (size == 0)
    {
        m_wide = text;
        return;
    }
    m_latin1 = QByteArray(size, Qt::Uninitialized);
    char* to = m_latin1.data();
    for (qsizetype i = 0; i < size; ++i)
        to[i] = static_cast<char>(units[i]);
    m_narrow = true;
}

CompactText CompactText::FromLatin1(QByteArray latin1)
{
    CompactText text;
    if (latin1.isEmpty())
    {
        text.m_wide = latin1.isNull() ? QString() : QString(QLatin1String(""));
        return text;
    }
    text.m_latin1 = std::move(latin1);
    text.m_narrow = true;
    return text;
}

} // namespace Velmora::WorkflowCore
