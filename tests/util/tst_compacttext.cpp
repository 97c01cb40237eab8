// SPDX-License-Identifier: MIT
// The markup a record keeps: in bytes exactly when every character fits in one, the same text
// whichever form it is kept in, null told from empty, and equal exactly when the texts are.

#include "util/CompactText.h"

#include <QRandomGenerator>
#include <QtTest>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using namespace Velmora::WorkflowCore;

namespace {

// Texts worth keeping: plain ASCII markup, Latin-1 letters (one byte each, above 0x7F), the
// highest Latin-1 character, the first one beyond it, letters of other scripts and a character
// outside the basic plane, written as a surrogate pair.
QString RandomText(QRandomGenerator& random)
{
    static const QStringList pieces = {QStringLiteral("<Step Order=\"1\"/>"),
                                       QStringLiteral("\n    "),
                                       QStringLiteral("&amp;"),
                                       QString(QChar(0xE9)),
                                       QString(QChar(0xFF)),
                                       QString(QChar(0x100)),
                                       QString(QChar(0x3A9)),
                                       QString(QChar(0x4E2D)),
                                       QString::fromUcs4(U"\U0001F600"),
                                       QString(QChar(0x80)),
                                       QStringLiteral("x")};
    QString text;
    const int count = random.bounded(12);
    for (int i = 0; i < count; ++i)
        text += pieces.at(random.bounded(int(pieces.size())));
    return text;
}

bool FitsInBytes(const QString& text)
{
    return std::all_of(text.cbegin(), text.cend(), [](QChar c) { return c.unicode() <= 0xFF; });
}

// A deferred text's source that counts how often it is read.
class CountingSource final : public DeferredText
{
public:
    explicit CountingSource(CompactText text) : m_text(std::move(text)) {}
    int Reads() const { return m_reads.load(); }

protected:
    CompactText Read() const override
    {
        ++m_reads;
        return m_text;
    }

private:
    const CompactText m_text;
    mutable std::atomic<int> m_reads{0};
};

} // namespace

class tst_CompactText : public QObject
{
    Q_OBJECT
private slots:
    void nullAndEmptyStayApart()
    {
        const CompactText none;
        QVERIFY(none.isNull());
        QVERIFY(none.isEmpty());
        QVERIFY(none.ToString().isNull());

        const QString nullText;
        const CompactText fromNull(nullText);
        QVERIFY(fromNull.isNull());
        // Reading a null text must leave it null.
        QVERIFY(nullText.isNull());

        const CompactText empty{QLatin1String("")};
        QVERIFY(!empty.isNull());
        QVERIFY(empty.isEmpty());
        QVERIFY(!empty.IsNarrow());
        QVERIFY(!empty.ToString().isNull());
        QVERIFY(empty.ToString().isEmpty());

        const CompactText emptyBytes = CompactText::FromLatin1(QByteArray(""));
        QVERIFY(!emptyBytes.isNull());
        QVERIFY(emptyBytes.isEmpty());
        QVERIFY(CompactText::FromLatin1(QByteArray()).isNull());

        // As texts compare: null and empty are equal, and each stays what it is.
        QVERIFY(none == empty);
        QVERIFY(empty == emptyBytes);
    }

    void formFollowsTheText()
    {
        const CompactText ascii(QStringLiteral("<Step Order=\"1\"/>"));
        QVERIFY(ascii.IsNarrow());
        QCOMPARE(ascii.Latin1(), QByteArray("<Step Order=\"1\"/>"));
        QCOMPARE(ascii.size(), 17);

        const QString latin1 = QStringLiteral("caf") + QChar(0xE9) + QChar(0xFF);
        const CompactText narrow(latin1);
        QVERIFY(narrow.IsNarrow());
        QCOMPARE(narrow.Latin1(), QByteArray("caf\xE9\xFF"));
        QCOMPARE(narrow.ToString(), latin1);

        const QString beyond = QStringLiteral("caf") + QChar(0x100);
        const CompactText wide(beyond);
        QVERIFY(!wide.IsNarrow());
        QCOMPARE(wide.Wide(), beyond);
        QCOMPARE(wide.ToString(), beyond);
        QCOMPARE(wide.size(), 4);

        CompactText assigned;
        assigned = QStringLiteral("<A/>");
        QVERIFY(assigned.IsNarrow());
        QCOMPARE(assigned.ToString(), QStringLiteral("<A/>"));
        assigned.clear();
        QVERIFY(assigned.isNull());
    }

    void bytesTakenAsTheyAre()
    {
        const QByteArray bytes("<B>\xE9t\xE9</B>");
        const CompactText text = CompactText::FromLatin1(bytes);
        QVERIFY(text.IsNarrow());
        QCOMPARE(text.ToString(), QString::fromLatin1(bytes));
        // The same text, however it came: equal, and in the same form.
        QVERIFY(text == CompactText(QString::fromLatin1(bytes)));
        QVERIFY(text != CompactText(QStringLiteral("<B>et\u00E9</B>")));
    }

    // A deferred text reads as the text its source gives, read once, at the first question any
    // copy of it asks, and kept by all of them from then on.
    void deferredTextIsReadOnceWhenFirstAskedFor()
    {
        const QString markup = QStringLiteral("<Step Order=\"1\" Action=\"Caf\u00E9\"/>");
        const auto source = std::make_shared<CountingSource>(CompactText(markup));
        const CompactText deferred = CompactText::Deferred(source);
        const CompactText copy = deferred;
        QVERIFY(deferred.IsWaiting());
        // Copies of one deferred text are equal without reading it.
        QVERIFY(copy == deferred);
        QCOMPARE(source->Reads(), 0);
        QVERIFY(copy.IsWaiting());

        QCOMPARE(copy.size(), markup.size());
        QCOMPARE(source->Reads(), 1);
        QVERIFY(!deferred.IsWaiting());
        QVERIFY(!copy.IsWaiting());
        QVERIFY(deferred.IsNarrow());
        QCOMPARE(deferred.Latin1(), markup.toLatin1());
        QCOMPARE(deferred.ToString(), markup);
        QVERIFY(!deferred.isNull());
        QVERIFY(!deferred.isEmpty());
        QVERIFY(deferred == CompactText(markup));
        QVERIFY(CompactText(markup) == deferred);
        QVERIFY(deferred != CompactText(QStringLiteral("<Step/>")));
        QCOMPARE(source->Reads(), 1);

        // Assigning a text ends the deferral for that copy alone.
        CompactText assigned = copy;
        assigned = QStringLiteral("<Other/>");
        QVERIFY(!assigned.IsWaiting());
        QCOMPARE(assigned.ToString(), QStringLiteral("<Other/>"));
        QCOMPARE(copy.ToString(), markup);
    }

    // Whatever the source gives, in either form or none, is what the deferred text reads as; a
    // source that gives another deferred text is read through.
    void deferredTextTakesTheFormItsSourceGives()
    {
        const CompactText wide = CompactText::Deferred(
            std::make_shared<CountingSource>(CompactText(QStringLiteral("<A>\u65E5</A>"))));
        QVERIFY(!wide.IsNarrow());
        QCOMPARE(wide.Wide(), QStringLiteral("<A>\u65E5</A>"));

        const CompactText none = CompactText::Deferred(std::make_shared<CountingSource>(CompactText()));
        QVERIFY(none.isNull());
        QVERIFY(none.isEmpty());
        QVERIFY(none == CompactText());

        const auto inner = std::make_shared<CountingSource>(CompactText(QStringLiteral("<Inner/>")));
        const auto outer = std::make_shared<CountingSource>(CompactText::Deferred(inner));
        const CompactText nested = CompactText::Deferred(outer);
        QCOMPARE(nested.ToString(), QStringLiteral("<Inner/>"));
        QVERIFY(!nested.IsWaiting());
        QCOMPARE(inner->Reads(), 1);
    }

    // Threads asking one deferred text at once read it once and all see the same text.
    void deferredTextIsReadOnceWhateverThreadsAsk()
    {
        for (int round = 0; round < 50; ++round)
        {
            const auto source = std::make_shared<CountingSource>(CompactText(QStringLiteral("<Step/>")));
            const CompactText deferred = CompactText::Deferred(source);
            std::vector<std::thread> threads;
            std::atomic<int> right{0};
            for (int i = 0; i < 4; ++i)
                threads.emplace_back([deferred, &right] {
                    if (deferred.ToString() == QStringLiteral("<Step/>"))
                        ++right;
                });
            for (std::thread& thread : threads)
                thread.join();
            QCOMPARE(right.load(), 4);
            QCOMPARE(source->Reads(), 1);
        }
    }

    void randomTextsRoundTrip()
    {
        QRandomGenerator random(20261125);
        QList<QString> texts;
        for (int i = 0; i < 2000; ++i)
            texts.append(RandomText(random));
        for (const QString& text : std::as_const(texts))
        {
            const CompactText kept(text);
            QCOMPARE(kept.ToString(), text);
            QCOMPARE(kept.size(), text.size());
            QCOMPARE(kept.isNull(), text.isNull());
            QCOMPARE(kept.IsNarrow(), !text.isEmpty() && FitsInBytes(text));
            if (kept.IsNarrow())
                QVERIFY(kept == CompactText::FromLatin1(text.toLatin1()));
        }
        // Equal exactly when the texts are.
        for (int i = 0; i + 1 < texts.size(); ++i)
        {
            const QString& a = texts.at(i);
            const QString& b = texts.at(i + 1);
            QCOMPARE(CompactText(a) == CompactText(b), a == b);
            QCOMPARE(CompactText(a) == CompactText(a), true);
        }
    }
};

QTEST_GUILESS_MAIN(tst_CompactText)
#include "tst_compacttext.moc"
