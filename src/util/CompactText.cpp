// SPDX-License-Identifier: MIT
#include "util/CompactText.h"

namespace Velmora::WorkflowCore {

bool CompactText::FitsInLatin1(QStringView text)
{
    for (const QChar c : text)
    {
        if (c.unicode() > 0xFF)
            return false;
    }
    return true;
}

CompactText::CompactText(const QString& text)
{
    // A view, not the text itself: asking a null text for its characters would make it empty.
    const QStringView view(text);
    if (view.isEmpty() || !FitsInLatin1(view))
    {
        m_wide = text;
        return;
    }
    m_latin1 = view.toLatin1();
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
