// SPDX-License-Identifier: MIT
#include "util/FoldedText.h"

#include <QHashFunctions>
#include <QVarLengthArray>

#include <utility>

namespace Velmora::WorkflowCore {

namespace {

bool IsAscii(const QString& text)
{
    for (const QChar c : text)
    {
        if (c.unicode() >= 0x80)
            return false;
    }
    return true;
}

// What case folding makes of an ASCII character: only the capitals change.
char16_t FoldedAscii(char16_t c)
{
    return c >= u'A' && c <= u'Z' ? char16_t(c + (u'a' - u'A')) : c;
}

} // namespace

FoldedText::FoldedText(QString text) : m_text(std::move(text)), m_ascii(IsAscii(m_text)) {}

bool operator==(const FoldedText& a, const FoldedText& b)
{
    if (!a.m_ascii || !b.m_ascii)
        return a.m_text.toCaseFolded() == b.m_text.toCaseFolded();
    const qsizetype size = a.m_text.size();
    if (size != b.m_text.size())
        return false;
    const char16_t* x = reinterpret_cast<const char16_t*>(a.m_text.constData());
    const char16_t* y = reinterpret_cast<const char16_t*>(b.m_text.constData());
    for (qsizetype i = 0; i < size; ++i)
    {
        if (x[i] != y[i] && FoldedAscii(x[i]) != FoldedAscii(y[i]))
            return false;
    }
    return true;
}

size_t qHash(const FoldedText& key, size_t seed)
{
    if (!key.m_ascii)
        return qHash(key.m_text.toCaseFolded(), seed);
    QVarLengthArray<char16_t, 256> folded(key.m_text.size());
    const char16_t* from = reinterpret_cast<const char16_t*>(key.m_text.constData());
    for (qsizetype i = 0; i < folded.size(); ++i)
        folded[i] = FoldedAscii(from[i]);
    return qHash(QStringView(folded.constData(), folded.size()), seed);
}

} // namespace Velmora::WorkflowCore
