// SPDX-License-Identifier: MIT
#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "TestEnvironment.h"
#include "WideText.h"

#include <QtTest>

using namespace Velmora::WorkflowCore;
using VmWorkflowTest::ReadText;
using VmWorkflowTest::Wide;

namespace {
QString ValueOf(const WorkflowArguments& arguments, const QString& key)
{
    const Wide wideKey(key);
    return ReadText([&](WideChar* b, int s) { return arguments.GetValue(wideKey, b, s); });
}
} // namespace

class tst_WorkflowArguments : public QObject
{
    Q_OBJECT
private slots:
    void missingKeyGivesEmptyText()
    {
        WorkflowArguments arguments;
        QCOMPARE(arguments.GetValue(Wide(QStringLiteral("Nothing")), nullptr, 0), 0);
        WideChar buffer[4] = {1, 1, 1, 1};
        QCOMPARE(arguments.GetValue(Wide(QStringLiteral("Nothing")), buffer, 4), 0);
        QCOMPARE(buffer[0], WideChar(0));
    }

    void setValueInsertsAndReplaces()
    {
        WorkflowArguments arguments;
        arguments.SetValue(Wide(QStringLiteral("Mode")), Wide(QStringLiteral("Fast")));
        QCOMPARE(ValueOf(arguments, QStringLiteral("Mode")), QStringLiteral("Fast"));
        arguments.SetValue(Wide(QStringLiteral("Mode")), Wide(QStringLiteral("Thorough")));
        QCOMPARE(ValueOf(arguments, QStringLiteral("Mode")), QStringLiteral("Thorough"));
    }

    void keysCompareExactly()
    {
        WorkflowArguments arguments;
        arguments.SetValue(Wide(QStringLiteral("Mode")), Wide(QStringLiteral("A")));
        arguments.SetValue(Wide(QStringLiteral("mode")), Wide(QStringLiteral("B")));
        QCOMPARE(ValueOf(arguments, QStringLiteral("Mode")), QStringLiteral("A"));
        QCOMPARE(ValueOf(arguments, QStringLiteral("mode")), QStringLiteral("B"));
        QCOMPARE(ValueOf(arguments, QStringLiteral("MODE")), QString());
    }

    void getValueFollowsTextOutRule()
    {
        WorkflowArguments arguments;
        arguments.SetValue(Wide(QStringLiteral("Key")), Wide(QStringLiteral("abcdef")));
        QCOMPARE(arguments.GetValue(Wide(QStringLiteral("Key")), nullptr, -1), 6);
        WideChar buffer[4];
        QCOMPARE(arguments.GetValue(Wide(QStringLiteral("Key")), buffer, 4), 3);
        QCOMPARE(buffer[3], WideChar(0));
    }

    void privateCopyOfTheMapIsOrderedByKey()
    {
        WorkflowArguments arguments;
        arguments.SetValue(Wide(QStringLiteral("b")), Wide(QStringLiteral("2")));
        arguments.SetValue(Wide(QStringLiteral("a")), Wide(QStringLiteral("1")));
        const QMap<QString, QString> copy = WorkflowPrivate::GetArguments(&arguments);
        QCOMPARE(copy.keys(), QStringList({QStringLiteral("a"), QStringLiteral("b")}));
        QCOMPARE(copy.value(QStringLiteral("b")), QStringLiteral("2"));
        QVERIFY(WorkflowPrivate::GetArguments(nullptr).isEmpty());
    }

    void manyArgumentsAreReleasedWithTheObject()
    {
        // Under the leak checker this proves the whole map goes with the object.
        auto* arguments = new WorkflowArguments;
        for (int i = 0; i < 500; ++i)
            arguments->SetValue(Wide(QString::number(i)), Wide(QString(100, QLatin1Char('x'))));
        QCOMPARE(WorkflowPrivate::GetArguments(arguments).size(), 500);
        delete arguments;
    }
};

QTEST_GUILESS_MAIN(tst_WorkflowArguments)
#include "tst_workflowarguments.moc"
