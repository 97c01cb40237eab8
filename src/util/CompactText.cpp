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

CompactText CompactText::Deferred(std::shared_ptr<const DeferredText> source)
{
    CompactText text;
    text.m_source = std::move(source);
    return text;
}

qsizetype CompactText::size() const
{
    const CompactText& own = Own();
    return own.m_narrow ? own.m_latin1.size() : own.m_wide.size();
}

QString CompactText::ToString() const
{
    const CompactText& own = Own();
    return own.m_narrow ? QString::fromLatin1(own.m_latin1) : own.m_wide;
}

bool CompactText::IsWaiting() const
{
    return m_source && !m_source->IsRead();
}

bool operator==(const CompactText& a, const CompactText& b)
{
    // Two copies of one deferred text are equal without reading it.
    if (a.m_source && a.m_source == b.m_source)
        return true;
    const CompactText& x = a.Own();
    const CompactText& y = b.Own();
    return x.m_narrow == y.m_narrow && (x.m_narrow ? x.m_latin1 == y.m_latin1 : x.m_wide == y.m_wide);
}

DeferredText::~DeferredText() = default;

const CompactText& DeferredText::Text() const
{
    std::call_once(m_once, [this] {
        CompactText text = Read();
        // A source that hands back another deferred text is read through, so that the text held
        // is always one of the two plain forms.
        m_text = text.m_source ? CompactText(text.ToString()) : std::move(text);
        m_read.store(true, std::memory_order_release);
    });
    return m_text;
}

} // namespace Velmora::WorkflowCore
