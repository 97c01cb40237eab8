// SPDX-License-Identifier: MIT
#include "util/FoldedText.h"

#include <QHashFunctions>
#include <QVarLengthArray>

#include <utility>

namespace Velmora::WorkflowCore {

namespace {

// What case folding makes of an ASCII character: only the capitals change.
char16_t FoldedAscii(char16_t c)
{
    return c >= u'A' && c <= u'Z' ? char16_t(c + (u'a' - u'A')) : c;
}

// The hash of the folded form, the same in every table. Two texts equal once folded hash alike
// whichever way each folds: plain ASCII folds a character at a time, anything else whole. The
// seed is any fixed number but zero, which takes the library's slowest way of hashing bytes.
constexpr size_t kFoldedSeed = 0x9E3779B9u;

// One pass over the text both tells whether it is plain ASCII (ascii) and folds it.
quint32 FoldedHash(const QString& text, bool& ascii)
{
    QVarLengthArray<char16_t, 256> folded(text.size());
    const char16_t* from = reinterpret_cast<const char16_t*>(text.constData());
    for (qsizetype i = 0; i < folded.size(); ++i)
    {
        if (from[i] >= 0x80)
        {
            ascii = false;
            return quint32(qHash(text.toCaseFolded(), kFoldedSeed));
        }
        folded[i] = FoldedAscii(from[i]);
    }
    ascii = true;
    return quint32(qHash(QStringView(folded.constData(), folded.size()), kFoldedSeed));
}

} // namespace

static_assert(sizeof(FoldedText) <= sizeof(QString) + sizeof(void*),
              "a key holds its text, its hash and a flag");

FoldedText::FoldedText() : FoldedText(QString()) {}

FoldedText::FoldedText(QString text) : m_text(std::move(text))
{
    m_hash = FoldedHash(m_text, m_ascii);
}

bool operator==(const FoldedText& a, const FoldedText& b)
{
    if (a.m_hash != b.m_hash)
        return false;
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
    // The keys are Ids and names of workflow files on the user's own disk: the table's seed is
    // mixed into the hash taken when the key was made rather than into a fresh pass over its text.
    return ::qHash(key.m_hash, seed);
}

} // namespace Velmora::WorkflowCore
