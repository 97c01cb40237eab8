// SPDX-License-Identifier: MIT
// The one copy rule of every text getter, seen through the exported interface.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>

#include "TestEnvironment.h"
#include "WideText.h"

#include <QtTest>

#include <array>

using namespace Velmora::WorkflowCore;
using VmWorkflowTest::Wide;

namespace {
constexpr WideChar kUntouched = WideChar(0x7777);

template <size_t N> std::array<WideChar, N> Filled()
{
    std::array<WideChar, N> buffer;
    buffer.fill(kUntouched);
    return buffer;
}
} // namespace

class tst_TextOut : public QObject
{
    Q_OBJECT
private:
    VmWorkflowTest::TestEnvironment m_env;

private slots:
    void initTestCase() { QVERIFY(m_env.Setup()); }

    void nullBufferReturnsLengthWhateverTheSize_data()
    {
        QTest::addColumn<int>("size");
        QTest::newRow("negative") << -5;
        QTest::newRow("zero") << 0;
        QTest::newRow("one") << 1;
        QTest::newRow("large") << 1000;
    }
    void nullBufferReturnsLengthWhateverTheSize()
    {
        QFETCH(int, size);
        Workflow workflow;
        workflow.SetName(Wide(QStringLiteral("Monthly report")));
        QCOMPARE(workflow.GetName(nullptr, size), 14);
    }

    void sizeZeroOrNegativeWritesNothing_data()
    {
        QTest::addColumn<int>("size");
        QTest::newRow("zero") << 0;
        QTest::newRow("negative") << -1;
    }
    void sizeZeroOrNegativeWritesNothing()
    {
        QFETCH(int, size);
        Workflow workflow;
        workflow.SetName(Wide(QStringLiteral("abc")));
        auto buffer = Filled<4>();
        QCOMPARE(workflow.GetName(buffer.data(), size), 0);
        QCOMPARE(buffer[0], kUntouched);
    }

    void sizeOneWithValueWritesOnlyTerminator()
    {
        Workflow workflow;
        workflow.SetName(Wide(QStringLiteral("abc")));
        auto buffer = Filled<4>();
        QCOMPARE(workflow.GetName(buffer.data(), 1), 0);
        QCOMPARE(buffer[0], WideChar(0));
        QCOMPARE(buffer[1], kUntouched);
    }

    void sizeOneWithEmptyValueReturnsZero()
    {
        Workflow workflow;
        auto buffer = Filled<4>();
        QCOMPARE(workflow.GetName(buffer.data(), 1), 0);
        QCOMPARE(buffer[0], WideChar(0));
    }

    void emptyValueWritesTerminator()
    {
        Workflow workflow;
        auto buffer = Filled<4>();
        QCOMPARE(workflow.GetDescription(buffer.data(), 4), 0);
        QCOMPARE(buffer[0], WideChar(0));
        QCOMPARE(buffer[1], kUntouched);
    }

    void sizeEqualToLengthLosesLastCharacter()
    {
        Workflow workflow;
        workflow.SetName(Wide(QStringLiteral("abcd")));
        auto buffer = Filled<8>();
        QCOMPARE(workflow.GetName(buffer.data(), 4), 3);
        QCOMPARE(QString::fromUtf16(reinterpret_cast<const char16_t*>(buffer.data())), QStringLiteral("abc"));
        QCOMPARE(buffer[3], WideChar(0));
        QCOMPARE(buffer[4], kUntouched);
    }

    void sizeAboveLengthCopiesAllAndTerminates()
    {
        Workflow workflow;
        workflow.SetName(Wide(QStringLiteral("abcd")));
        auto buffer = Filled<8>();
        QCOMPARE(workflow.GetName(buffer.data(), 5), 4);
        QCOMPARE(buffer[4], WideChar(0));
        QCOMPARE(buffer[5], kUntouched);
        auto large = Filled<8>();
        QCOMPARE(workflow.GetName(large.data(), 8), 4);
        QCOMPARE(large[4], WideChar(0));
        QCOMPARE(large[5], kUntouched);
    }

    void cutMaySplitSurrogatePair()
    {
        // "a" then U+1F600 (two code units) then "b": four units in all.
        const QString text = QStringLiteral("a") + QString::fromUcs4(U"\U0001F600") + QStringLiteral("b");
        QCOMPARE(text.size(), 4);
        Workflow workflow;
        workflow.SetName(Wide(text));
        QCOMPARE(workflow.GetName(nullptr, 0), 4);
        auto buffer = Filled<8>();
        QCOMPARE(workflow.GetName(buffer.data(), 3), 2);
        QCOMPARE(buffer[0], WideChar(u'a'));
        QCOMPARE(buffer[1], WideChar(text.at(1).unicode()));
        QVERIFY(QChar::isHighSurrogate(buffer[1]));
        QCOMPARE(buffer[2], WideChar(0));
    }

    void truncationIsDetectedBySizeMinusOne()
    {
        Workflow workflow;
        workflow.SetDescription(Wide(QStringLiteral("0123456789")));
        auto buffer = Filled<6>();
        const int copied = workflow.GetDescription(buffer.data(), 6);
        QCOMPARE(copied, 5);
        QVERIFY(copied < workflow.GetDescription(nullptr, 0));
    }

    void settersStoreTheTextRoundTrip()
    {
        Workflow workflow;
        const QString text = QStringLiteral("Übersicht – 漢字 ") + QString::fromUcs4(U"\U0001F680");
        workflow.SetDescription(Wide(text));
        QCOMPARE(VmWorkflowTest::ReadText([&](WideChar* b, int s) { return workflow.GetDescription(b, s); }),
                 text);
    }

    void managerGettersFollowTheSameRule()
    {
        QVERIFY(WorkflowManager::Initialize());
        WorkflowManager* manager = WorkflowManager::GetInstance();
        manager->SetCurrentLocale(Wide(QStringLiteral("fr-FR")));
        QCOMPARE(manager->GetCurrentLocale(nullptr, -3), 5);
        auto buffer = Filled<8>();
        QCOMPARE(manager->GetCurrentLocale(buffer.data(), 5), 4);
        QCOMPARE(buffer[4], WideChar(0));
        QCOMPARE(manager->GetCurrentLocale(buffer.data(), 1), 0);
        QCOMPARE(buffer[0], WideChar(0));
        QVERIFY(WorkflowManager::Uninitialize());
    }
};

QTEST_GUILESS_MAIN(tst_TextOut)
#include "tst_textout.moc"
