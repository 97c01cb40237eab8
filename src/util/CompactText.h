// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

namespace Velmora::WorkflowCore {

// A large text of a record, kept one byte per character when every character of it fits in one
// (as the markup of nearly every workflow does), and as UTF-16 otherwise. A catalogue of
// thousands of records holds half the memory for such texts, and a later start makes half the
// fresh pages for them.
//
// The form follows from the text alone: a text that fits in bytes is always kept in bytes, so
// two texts are equal exactly when their forms and contents are. Null and empty texts are kept
// as UTF-16, so that a null text stays null.
class CompactText
{
public:
    CompactText() = default;
    explicit CompactText(const QString& text);
    // Bytes known to be Latin-1, one per character: taken as they are.
    static CompactText FromLatin1(QByteArray latin1);
    // Whether every character of text fits in one Latin-1 byte.
    static bool FitsInLatin1(QStringView text);
    CompactText& operator=(const QString& text) { return *this = CompactText(text); }

    bool isNull() const { return !m_narrow && m_wide.isNull(); }
    bool isEmpty() const { return size() == 0; }
    qsizetype size() const { return m_narrow ? m_latin1.size() : m_wide.size(); }
    void clear() { *this = CompactText(); }

    QString ToString() const { return m_narrow ? QString::fromLatin1(m_latin1) : m_wide; }
    // The two forms: Latin1() when IsNarrow(), Wide() otherwise.
    bool IsNarrow() const { return m_narrow; }
    const QByteArray& Latin1() const { return m_latin1; }
    const QString& Wide() const { return m_wide; }

    friend bool operator==(const CompactText& a, const CompactText& b)
    {
        return a.m_narrow == b.m_narrow && (a.m_narrow ? a.m_latin1 == b.m_latin1 : a.m_wide == b.m_wide);
    }
    friend bool operator!=(const CompactText& a, const CompactText& b) { return !(a == b); }

private:
    QByteArray m_latin1;
    QString m_wide;
    bool m_narrow = false;
};

} // namespace Velmora::WorkflowCore
