// SPDX-License-Identifier: MIT
// The sample plug-in and a plug-in built only against the SDK header, loaded through the exported
// library the way the host application loads them, and run on real workflow files.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPlugin.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"

#include <QLibrary>
#include <QtTest>

#include <memory>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

const QString kSamplePluginFile = QStringLiteral(VMWF_SAMPLE_PLUGIN_FILE);
const QString kShare = QStringLiteral(VMWF_SHARE_DIR);
const QString kMonthlyReportId = QStringLiteral("Id_MyMonthlyReport_{6f1c2a0e-1b2c-4d5e-8f90-a1b2c3d4e5f6}");

std::unique_ptr<Workflow> LoadWorkflow(const QString& file, const QString& id = QString())
{
    auto workflow = std::make_unique<Workflow>();
    if (!workflow->Load(Wide(file), Wide(id)))
        return nullptr;
    return workflow;
}

QString Value(WorkflowArguments& arguments, const QString& key)
{
    return ReadText([&](WideChar* b, int s) { return arguments.GetValue(Wide(key), b, s); });
}

QString ExitMessage(WorkflowExecutor* executor)
{
    return ReadText([&](WideChar* b, int s) { return executor->GetExitMessage(b, s); });
}

QStringList Lines(const QString& path)
{
    return QString::fromUtf8(ReadFile(path)).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

QByteArray StepsWorkflow(const QByteArray& steps)
{
    return WorkflowDocument(
        WorkflowElement(R"(Plugin="libVmWorkflowSamplePlugin.so" Id="Id_Steps" Name="Steps")",
                        "<Settings>" + steps + "</Settings>"));
}

} // namespace

class tst_SamplePlugin : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;
    std::unique_ptr<QTemporaryDir> m_dir;

    QString Path(const QString& name) const { return m_dir->path() + QLatin1Char('/') + name; }

    std::unique_ptr<Workflow> MonthlyReport()
    {
        return LoadWorkflow(kShare + QStringLiteral("/workflows/user/My monthly report.workflow"));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(QFileInfo(kSamplePluginFile).isFile());
        QCOMPARE(QFileInfo(kSamplePluginFile).fileName(), QStringLiteral("libVmWorkflowSamplePlugin.so"));
    }

    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        QVERIFY(WorkflowManager::Initialize());
        WorkflowManager::GetInstance()->SetWorkflowPluginSearchPaths(
            Wide(QFileInfo(kSamplePluginFile).absolutePath()));
    }

    void cleanup()
    {
        QVERIFY(WorkflowManager::Uninitialize());
        m_dir.reset();
    }

    void executorRecordsTheSampleWorkflowsSteps()
    {
        auto workflow = MonthlyReport();
        QVERIFY(workflow);
        WorkflowExecutor* executor = WorkflowPrivate::GetWorkflowExecuteHandler(workflow.get());
        QVERIFY(executor);
        WorkflowArguments arguments;
        arguments.SetValue(Wide(QStringLiteral("ResultFile")), Wide(Path(QStringLiteral("result.txt"))));
        arguments.SetValue(Wide(QStringLiteral("DelayMs")), Wide(QStringLiteral("20")));
        QCOMPARE(executor->ExecuteWorkflow(workflow.get(), &arguments), 0);
        QCOMPARE(ExitMessage(executor), QString());
        const QStringList expected{QStringLiteral("Workflow ") + kMonthlyReportId,
                                   QStringLiteral("Name My monthly report"),
                                   QStringLiteral("Step 1 Open"),
                                   QStringLiteral("Step 2 Collect"),
                                   QStringLiteral("Step 3 Board summary"),
                                   QStringLiteral("Step 4 Finish"),
                                   QStringLiteral("Exit 0")};
        QCOMPARE(Lines(Path(QStringLiteral("result.txt"))), expected);
    }

    void everyRunnableSampleNamesTheSamplePlugin_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("id");
        QTest::newRow("template") << QStringLiteral("templates/SampleTemplates.workflow")
                                  << QStringLiteral("Id_DataExportTemplate");
        QTest::newRow("quarterly export") << QStringLiteral("user/Quarterly export.workflow") << QString();
        QTest::newRow("review A") << QStringLiteral("user/Review A.workflow") << QString();
        QTest::newRow("review B") << QStringLiteral("user/Review B.workflow") << QString();
    }

    void everyRunnableSampleNamesTheSamplePlugin()
    {
        QFETCH(QString, file);
        QFETCH(QString, id);
        auto workflow = LoadWorkflow(kShare + QStringLiteral("/workflows/") + file, id);
        QVERIFY(workflow);
        WorkflowExecutor* executor = WorkflowPrivate::GetWorkflowExecuteHandler(workflow.get());
        QVERIFY(executor);
        WorkflowArguments arguments;
        arguments.SetValue(Wide(QStringLiteral("ResultFile")), Wide(Path(QStringLiteral("result.txt"))));
        QCOMPARE(executor->ExecuteWorkflow(workflow.get(), &arguments), 0);
        const QStringList lines = Lines(Path(QStringLiteral("result.txt")));
        QVERIFY(lines.size() >= 4);
        QVERIFY(lines.at(2).startsWith(QStringLiteral("Step 1 ")));
        QCOMPARE(lines.last(), QStringLiteral("Exit 0"));
    }

    void exitStatusAndMessageAreHonoured_data()
    {
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("expectedStatus");
        QTest::addColumn<QString>("expectedMessage");
        QTest::newRow("status and message") << QStringLiteral("7") << QStringLiteral("Stopped by the test")
                                            << 7 << QStringLiteral("Stopped by the test");
        QTest::newRow("status alone") << QStringLiteral("5") << QString() << 5
                                      << QStringLiteral("The run was asked to end with status 5.");
        QTest::newRow("nothing asked") << QString() << QString() << 0 << QString();
        QTest::newRow("not a number") << QStringLiteral("seven") << QString() << 0 << QString();
    }

    void exitStatusAndMessageAreHonoured()
    {
        QFETCH(QString, status);
        QFETCH(QString, message);
        QFETCH(int, expectedStatus);
        QFETCH(QString, expectedMessage);
        auto workflow = MonthlyReport();
        QVERIFY(workflow);
        WorkflowExecutor* executor = WorkflowPrivate::GetWorkflowExecuteHandler(workflow.get());
        QVERIFY(executor);
        WorkflowArguments arguments;
        arguments.SetValue(Wide(QStringLiteral("ResultFile")), Wide(Path(QStringLiteral("result.txt"))));
        if (!status.isEmpty())
            arguments.SetValue(Wide(QStringLiteral("ExitStatus")), Wide(status));
        if (!message.isEmpty())
            arguments.SetValue(Wide(QStringLiteral("ExitMessage")), Wide(message));
        QCOMPARE(executor->ExecuteWorkflow(workflow.get(), &arguments), expectedStatus);
        QCOMPARE(ExitMessage(executor), expectedMessage);
        const QString exitLine =
            expectedMessage.isEmpty()
                ? QStringLiteral("Exit %1").arg(expectedStatus)
                : QStringLiteral("Exit %1 %2").arg(QString::number(expectedStatus), expectedMessage);
        QCOMPARE(Lines(Path(QStringLiteral("result.txt"))).last(), exitLine);
        // Every step was carried out before the run ended with the status asked for.
        QCOMPARE(Lines(Path(QStringLiteral("result.txt"))).size(), 7);
    }

    void exitMessageFollowsTheTextOutRule()
    {
        auto workflow = MonthlyReport();
        QVERIFY(workflow);
        WorkflowExecutor* executor = WorkflowPrivate::GetWorkflowExecuteHandler(workflow.get());
        QVERIFY(executor);
        WorkflowArguments arguments;
        arguments.SetValue(Wide(QStringLiteral("ExitStatus")), Wide(QStringLiteral("3")));
        arguments.SetValue(Wide(QStringLiteral("ExitMessage")), Wide(QStringLiteral("abcdef")));
        QCOMPARE(executor->ExecuteWorkflow(workflow.get(), &arguments), 3);
        QCOMPARE(executor->GetExitMessage(nullptr, 0), 6);
        WideChar buffer[8] = {0x77, 0x77, 0x77, 0x77, 0x77, 0x77, 0x77, 0x77};
        QCOMPARE(executor->GetExitMessage(buffer, 0), 0);
        QCOMPARE(int(buffer[0]), 0x77);
        QCOMPARE(executor->GetExitMessage(buffer, 4), 3);
        QCOMPARE(QString::fromUtf16(reinterpret_cast<const char16_t*>(buffer)), QStringLiteral("abc"));
        // A plain success clears the message of the run before.
        WorkflowArguments plain;
        QCOMPARE(executor->ExecuteWorkflow(workflow.get(), &plain), 0);
        QCOMPARE(executor->GetExitMessage(nullptr, 0), 0);
    }

    void stepsRunInOrderUntilOneFails()
    {
        QVERIFY(WriteFile(
            Path(QStringLiteral("steps.workflow")),
            StepsWorkflow(R"(<Step Order="3" Action="Append" File="appended.txt" Text="third step"/>)"
                          R"(<Step Action="Unnumbered"/>)"
                          R"(<Step Order="1" Action="Open"/>)"
                          R"(<Step Order="2" Action="Wait" Ms="5"/>)"
                          R"(<Step Order="5" Action="Never reached"/>)"
                          R"(<Step Order="4" Action="Fail" Status="9" Message="Stopped at four"/>)")));
        auto workflow = LoadWorkflow(Path(QStringLiteral("steps.workflow")));
        QVERIFY(workflow);
        WorkflowExecutor* executor = WorkflowPrivate::GetWorkflowExecuteHandler(workflow.get());
        QVERIFY(executor);
        WorkflowArguments arguments;
        arguments.SetValue(Wide(QStringLiteral("ResultFile")), Wide(Path(QStringLiteral("result.txt"))));
        arguments.SetValue(Wide(QStringLiteral("ExitStatus")), Wide(QStringLiteral("1")));
        QCOMPARE(executor->ExecuteWorkflow(workflow.get(), &arguments), 9);
        QCOMPARE(ExitMessage(executor), QStringLiteral("Stopped at four"));
        const QStringList expected{QStringLiteral("Workflow Id_Steps"),     QStringLiteral("Name Steps"),
                                   QStringLiteral("Step 1 Open"),           QStringLiteral("Step 2 Wait"),
                                   QStringLiteral("Step 3 Append"),         QStringLiteral("Step 4 Fail"),
                                   QStringLiteral("Exit 9 Stopped at four")};
        QCOMPARE(Lines(Path(QStringLiteral("result.txt"))), expected);
        QCOMPARE(ReadFile(Path(QStringLiteral("appended.txt"))), QByteArray("third step\n"));
    }

    void stepsWithoutOrderComeLast()
    {
        QVERIFY(WriteFile(
            Path(QStringLiteral("steps.workflow")),
            StepsWorkflow(
                R"(<Step Action="Last"/><Step Order="2" Action="B"/><Step Order="1" Action="A"/>)")));
        auto workflow = LoadWorkflow(Path(QStringLiteral("steps.workflow")));
        QVERIFY(workflow);
        WorkflowExecutor* executor = WorkflowPrivate::GetWorkflowExecuteHandler(workflow.get());
        QVERIFY(executor);
        WorkflowArguments arguments;
        arguments.SetValue(Wide(QStringLiteral("ResultFile")), Wide(Path(QStringLiteral("result.txt"))));
        QCOMPARE(executor->ExecuteWorkflow(workflow.get(), &arguments), 0);
        const QStringList expected{QStringLiteral("Workflow Id_Steps"), QStringLiteral("Name Steps"),
                                   QStringLiteral("Step 1 A"),          QStringLiteral("Step 2 B"),
                                   QStringLiteral("Step - Last"),       QStringLiteral("Exit 0")};
        QCOMPARE(Lines(Path(QStringLiteral("result.txt"))), expected);
    }

    void failuresOfTheRunAreReported()
    {
        auto workflow = MonthlyReport();
        QVERIFY(workflow);
        WorkflowExecutor* executor = WorkflowPrivate::GetWorkflowExecuteHandler(workflow.get());
        QVERIFY(executor);

        WorkflowArguments unwritable;
        const QString nowhere = Path(QStringLiteral("missing/result.txt"));
        unwritable.SetValue(Wide(QStringLiteral("ResultFile")), Wide(nowhere));
        QCOMPARE(executor->ExecuteWorkflow(workflow.get(), &unwritable), 3);
        QVERIFY(ExitMessage(executor).contains(nowhere));

        QCOMPARE(executor->ExecuteWorkflow(nullptr, nullptr), 1);
        QVERIFY(!ExitMessage(executor).isEmpty());

        workflow->SetSettings(Wide(QStringLiteral("<Step Order=\"1\" Action=\"Open\">")));
        WorkflowArguments arguments;
        QCOMPARE(executor->ExecuteWorkflow(workflow.get(), &arguments), 2);
        QVERIFY(!ExitMessage(executor).isEmpty());
    }

    void launchHandlerAddsItsArgumentAndSharesTheLibrary()
    {
        auto workflow = MonthlyReport();
        QVERIFY(workflow);
        WorkflowExecutor* executor = WorkflowPrivate::GetWorkflowExecuteHandler(workflow.get());
        QVERIFY(executor);
        QVERIFY(!WorkflowPrivate::GetWorkflowEditorHandler(workflow.get()));

        // The launcher's question goes through the entry point of the very library the manager loaded.
        QLibrary library(kSamplePluginFile);
        QVERIFY(library.load());
        const auto entryPoint =
            reinterpret_cast<GetWorkflowPluginFunction>(library.resolve("GetWorkflowPlugin"));
        QVERIFY(entryPoint);
        WorkflowPlugin* plugin = entryPoint();
        QVERIFY(plugin);
        QCOMPARE(plugin->GetWorkflowExecuteHandler(), executor);
        WorkflowLaunchHandler* launch = plugin->GetWorkflowLaunchHandler();
        QVERIFY(launch);

        WorkflowArguments arguments;
        arguments.SetValue(Wide(QStringLiteral("ResultFile")), Wide(Path(QStringLiteral("result.txt"))));
        QVERIFY(launch->PrepareLaunch(workflow.get(), &arguments));
        QCOMPARE(Value(arguments, QStringLiteral("SamplePluginPrepared")), QStringLiteral("True"));
        QCOMPARE(Value(arguments, QStringLiteral("ResultFile")), Path(QStringLiteral("result.txt")));
        QVERIFY(launch->PrepareLaunch(workflow.get(), nullptr));

        QCOMPARE(executor->ExecuteWorkflow(workflow.get(), &arguments), 0);
        QCOMPARE(Lines(Path(QStringLiteral("result.txt"))).value(2), QStringLiteral("Prepared True"));
        library.unload();
    }

    void pluginBuiltAgainstTheSdkHeaderAloneRuns()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("sdk.workflow")),
                          WorkflowDocument(WorkflowElement(
                              R"(Plugin="libVmwfTestSdkPlugin.so" Id="Id_Sdk" Name="Third party")"))));
        auto workflow = LoadWorkflow(Path(QStringLiteral("sdk.workflow")));
        QVERIFY(workflow);
        // Found in the application folder, after the configured one.
        WorkflowExecutor* executor = WorkflowPrivate::GetWorkflowExecuteHandler(workflow.get());
        QVERIFY(executor);
        QVERIFY(!WorkflowPrivate::GetWorkflowEditorHandler(workflow.get()));
        WorkflowArguments arguments;
        QCOMPARE(executor->ExecuteWorkflow(workflow.get(), &arguments), 6);
        QCOMPARE(ExitMessage(executor), QStringLiteral("Ran Third party"));
        QCOMPARE(Value(arguments, QStringLiteral("SdkPluginRan")), QStringLiteral("True"));
    }
};

QTEST_GUILESS_MAIN(tst_SamplePlugin)
#include "tst_sampleplugin.moc"
