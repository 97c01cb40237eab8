// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

#include <atomic>
#include <memory>
#include <mutex>

namespace Velmora::WorkflowCore {

class DeferredText;

// A large text of a record, kept one byte per character when every character of it fits in one
// (as the markup of nearly every workflow does), and as UTF-16 otherwise. A catalogue of
// thousands of records holds half the memory for such texts, and a later start makes half the
// fresh pages for them.
//
// The form follows from the text alone: a text that fits in bytes is always kept in bytes, so
// two texts are equal exactly when their forms and contents are. Null and empty texts are kept
// as UTF-16, so that a null text stays null.
//
// A text may also be deferred: kept where it was stored (see DeferredText) and read only when
// something is first asked of it, after which every copy of it holds it. Nothing tells a
// deferred text from the text it reads as but IsWaiting().
class CompactText
{
public:
    CompactText() = default;
    explicit CompactText(const QString& text);
    // Bytes known to be Latin-1, one per character: taken as they are.
    static CompactText FromLatin1(QByteArray latin1);
    // The text source will give when it is first asked for.
    static CompactText Deferred(std::shared_ptr<const DeferredText> source);
    // Whether every character of text fits in one Latin-1 byte.
    static bool FitsInLatin1(QStringView text);
    CompactText& operator=(const QString& text) { return *this = CompactText(text); }

    bool isNull() const { return Own().IsNullHere(); }
    bool isEmpty() const { return size() == 0; }
    qsizetype size() const;
    void clear() { *this = CompactText(); }

    QString ToString() const;
    // The two forms: Latin1() when IsNarrow(), Wide() otherwise.
    bool IsNarrow() const { return Own().m_narrow; }
    const QByteArray& Latin1() const { return Own().m_latin1; }
    const QString& Wide() const { return Own().m_wide; }
    // Whether the text is deferred and has not been read yet.
    bool IsWaiting() const;

    friend bool operator==(const CompactText& a, const CompactText& b);
    friend bool operator!=(const CompactText& a, const CompactText& b) { return !(a == b); }

private:
    friend class DeferredText;
    // The text itself: this one, or the one its source gave.
    const CompactText& Own() const;
    bool IsNullHere() const { return !m_narrow && m_wide.isNull(); }

    QByteArray m_latin1;
    QString m_wide;
    bool m_narrow = false;
    std::shared_ptr<const DeferredText> m_source;
};

// Where a deferred text is kept. It is read once, by the first question asked of any copy of
// the text, on whatever thread asks; what it gave is kept from then on.
class DeferredText
{
public:
    DeferredText() = default;
    virtual ~DeferredText();
    DeferredText(const DeferredText&) = delete;
    DeferredText& operator=(const DeferredText&) = delete;

    const CompactText& Text() const;
    bool IsRead() const { return m_read.load(std::memory_order_acquire); }

protected:
    // The text as stored; never a deferred text itself.
    virtual CompactText Read() const = 0;

private:
    mutable std::once_flag m_once;
    mutable CompactText m_text;
    mutable std::atomic<bool> m_read{false};
};

inline const CompactText& CompactText::Own() const
{
    return m_source ? m_source->Text() : *this;
}

} // namespace Velmora::WorkflowCore
