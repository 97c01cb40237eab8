// SPDX-License-Identifier: MIT
// The host application on its own: what it does with good and bad command lines, and what it
// leaves in the registry of executing workflows.

#include "FileFixtures.h"
#include "TestEnvironment.h"

#include "execution/ExecutingRegistry.h"
#include "manager/WorkflowManagerImp.h"

#include <VmWorkflowCore/WorkflowManager.h>

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Velmora::WorkflowCore;
using VmWorkflowTest::ReadFile;
using VmWorkflowTest::WriteFile;

namespace {

const QString kHost = QStringLiteral(VMWF_HOST_EXECUTABLE);
const QString kSamplePlugin = QStringLiteral(VMWF_SAMPLE_PLUGIN);

struct HostRun
{
    int exitCode = -1;
    QProcess::ExitStatus exitStatus = QProcess::CrashExit;
    QString standardError;
    qint64 processId = 0;
};

HostRun RunHost(const QStringList& arguments)
{
    HostRun run;
    QProcess process;
    process.start(kHost, arguments);
    if (!process.waitForStarted(10000))
        return run;
    run.processId = process.processId();
    process.waitForFinished(60000);
    run.exitCode = process.exitCode();
    run.exitStatus = process.exitStatus();
    run.standardError = QString::fromLocal8Bit(process.readAllStandardError()).trimmed();
    return run;
}

// One sentence: one line ending in a full stop.
bool IsOneSentence(const QString& text)
{
    return !text.isEmpty() && !text.contains(QLatin1Char('\n')) && text.endsWith(QLatin1Char('.'));
}

} // namespace

class VmWorkflowHostTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void badInputEndsWithOneSentence_data();
    void badInputEndsWithOneSentence();
    void missingPluginLeavesAFinishedRun();
    void runsThePluginAndExitsWithItsStatus_data();
    void runsThePluginAndExitsWithItsStatus();

private:
    ExecutingWorkflowRecord FinishedEntry(const QString& workflowId, qint64 hostProcessId);

    VmWorkflowTest::TestEnvironment m_environment;
    QTemporaryDir m_files;
    QString m_workflowFile;
};

void VmWorkflowHostTest::initTestCase()
{
    QVERIFY(m_environment.Setup());
    QVERIFY(m_files.isValid());
    m_workflowFile = m_files.path() + QStringLiteral("/host.workflow");
    const QByteArray document = VmWorkflowTest::WorkflowDocument(
        VmWorkflowTest::WorkflowElement("Id=\"Id_Runs\" Name=\"Runs\" Plugin=\"" +
                                        QFile::encodeName(QFileInfo(kSamplePlugin).fileName()) + "\"") +
        VmWorkflowTest::WorkflowElement(R"(Id="Id_NoPlugin" Name="No plug-in" Plugin="libNoSuchPlugin.so")"));
    QVERIFY(WriteFile(m_workflowFile, document));
    QVERIFY(WriteFile(m_files.path() + QStringLiteral("/garbage.workflow"), "this is no workflow <<"));
    // The test reads the registry the host writes.
    QVERIFY(WorkflowManager::Initialize());
}

void VmWorkflowHostTest::cleanupTestCase()
{
    WorkflowManager::Uninitialize();
}

ExecutingWorkflowRecord VmWorkflowHostTest::FinishedEntry(const QString& workflowId, qint64 hostProcessId)
{
    const QList<ExecutingWorkflowRecord> entries =
        WorkflowManagerImp::Instance()->Registry()->Enumerate(false, true);
    for (const ExecutingWorkflowRecord& entry : entries)
    {
        if (entry.WorkflowId == workflowId && entry.HostProcessId == hostProcessId)
            return entry;
    }
    return ExecutingWorkflowRecord();
}

void VmWorkflowHostTest::badInputEndsWithOneSentence_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("no arguments") << QStringList() << 2;
    QTest::newRow("an option where the file belongs") << QStringList{QStringLiteral("/Locale=en-US")} << 2;
    QTest::newRow("an argument that is no option")
        << QStringList{QStringLiteral("/tmp/x.workflow?Id_Runs"), QStringLiteral("Locale=en-US")} << 2;
    QTest::newRow("a file that is not there")
        << QStringList{QStringLiteral("/nonexistent/folder/x.workflow?Id_Runs")} << 3;
}

void VmWorkflowHostTest::badInputEndsWithOneSentence()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    const HostRun run = RunHost(arguments);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, exitCode);
    QVERIFY2(IsOneSentence(run.standardError), qPrintable(run.standardError));
}

void VmWorkflowHostTest::missingPluginLeavesAFinishedRun()
{
    // Files that cannot give the workflow asked for end the run before it is registered.
    HostRun run = RunHost({m_files.path() + QStringLiteral("/garbage.workflow?Id_Runs")});
    QCOMPARE(run.exitCode, 3);
    QVERIFY2(IsOneSentence(run.standardError), qPrintable(run.standardError));
    run = RunHost({m_workflowFile + QStringLiteral("?Id_Unknown")});
    QCOMPARE(run.exitCode, 3);
    QVERIFY2(IsOneSentence(run.standardError), qPrintable(run.standardError));
    QVERIFY(run.standardError.contains(QStringLiteral("Id_Unknown")));

    // A known workflow whose plug-in is missing ends with a run entry that says so.
    run = RunHost({m_workflowFile + QStringLiteral("?Id_NoPlugin"),
                   QStringLiteral("/PluginSearchPaths=") + m_files.path()});
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, 4);
    QVERIFY2(IsOneSentence(run.standardError), qPrintable(run.standardError));
    const ExecutingWorkflowRecord entry = FinishedEntry(QStringLiteral("Id_NoPlugin"), run.processId);
    QCOMPARE(entry.WorkflowId, QStringLiteral("Id_NoPlugin"));
    QCOMPARE(entry.ExitStatus, 4);
    QVERIFY(!entry.ErrorMessage.isEmpty());
}

void VmWorkflowHostTest::runsThePluginAndExitsWithItsStatus_data()
{
    QTest::addColumn<QString>("exitStatus");
    QTest::addColumn<int>("expected");
    QTest::newRow("success") << QString() << 0;
    QTest::newRow("failure") << QStringLiteral("5") << 5;
}

void VmWorkflowHostTest::runsThePluginAndExitsWithItsStatus()
{
    QFETCH(QString, exitStatus);
    QFETCH(int, expected);
    const QString result = m_files.path() + QStringLiteral("/result-%1.txt").arg(expected);
    QStringList arguments{m_workflowFile + QStringLiteral("?Id_Runs"), QStringLiteral("/Locale=en-US"),
                          QStringLiteral("/PluginSearchPaths=") + QFileInfo(kSamplePlugin).absolutePath(),
                          QStringLiteral("/WorkflowSearchPath="), QStringLiteral("/ResultFile=") + result};
    if (!exitStatus.isEmpty())
        arguments << QStringLiteral("/ExitStatus=") + exitStatus;
    const HostRun run = RunHost(arguments);
    QCOMPARE(run.exitStatus, QProcess::NormalExit);
    QCOMPARE(run.exitCode, expected);
    const QString lines = QString::fromUtf8(ReadFile(result));
    QVERIFY2(lines.startsWith(QStringLiteral("Workflow Id_Runs\nName Runs\n")), qPrintable(lines));
    if (expected != 0)
    {
        // A failed run stays visible, with the plug-in's message.
        const ExecutingWorkflowRecord entry = FinishedEntry(QStringLiteral("Id_Runs"), run.processId);
        QCOMPARE(entry.ExitStatus, expected);
        QCOMPARE(entry.ErrorMessage, QStringLiteral("The run was asked to end with status 5."));
    }
}

QTEST_GUILESS_MAIN(VmWorkflowHostTest)
#include "tst_vmworkflowhost.moc"
