// SPDX-License-Identifier: MIT
// A launch whose host cannot be started, in a process with widgets: the one message the library
// ever shows. The test closes the box itself, so nothing waits for a user.

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"

#include <VmWorkflowCore/WorkflowManager.h>

#include <OstrelAdapter/ApplicationInfo.h>
#include <OstrelAdapter/ApplicationManager.h>
#include <OstrelAdapter/OstrelAdapterUtility.h>

#include <QApplication>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace Velmora::WorkflowCore;
using VmWorkflowTest::Wide;
using VmWorkflowTest::WriteFile;

class LaunchFailureBoxTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void failedStartShowsCriticalBox_data();
    void failedStartShowsCriticalBox();

private:
    VmWorkflowTest::TestEnvironment m_environment;
    QTemporaryDir m_files;
};

void LaunchFailureBoxTest::initTestCase()
{
    QVERIFY(m_environment.Setup());
    QVERIFY(m_files.isValid());
    QVERIFY(QDir(m_files.path()).mkpath(QStringLiteral("tmp")));
    qputenv("TMPDIR", QFile::encodeName(m_files.path() + QStringLiteral("/tmp")));
    QVERIFY(WriteFile(m_files.path() + QStringLiteral("/workflows/box.workflow"),
                      VmWorkflowTest::WorkflowDocument(
                          VmWorkflowTest::WorkflowElement(R"(Id="Id_Box" Name="Box title")"))));
    QVERIFY(WorkflowManager::Initialize());
    WorkflowManager::GetInstance()->SetWorkflowSearchPaths(
        Wide(m_files.path() + QStringLiteral("/workflows")));
}

void LaunchFailureBoxTest::cleanupTestCase()
{
    WorkflowManager::Uninitialize();
}

void LaunchFailureBoxTest::failedStartShowsCriticalBox_data()
{
    QTest::addColumn<QString>("manifestFolder");
    QTest::addColumn<int>("error");
    QTest::newRow("executable missing")
        << QStringLiteral("missing") << int(Velmora::OstrelAdapter::Application::ExecutableMissing);
    QTest::newRow("no host installed")
        << QStringLiteral("none") << int(Velmora::OstrelAdapter::Application::ApplicationNotFound);
}

void LaunchFailureBoxTest::failedStartShowsCriticalBox()
{
    QFETCH(QString, manifestFolder);
    QFETCH(int, error);
    const QString manifests = m_files.path() + QLatin1Char('/') + manifestFolder;
    QVERIFY(QDir().mkpath(manifests));
    if (manifestFolder == QLatin1String("missing"))
    {
        QVERIFY(WriteFile(manifests + QStringLiteral("/VmWorkflowHost.xml"),
                          "<Application Id=\"Id_VmWorkflowHost\" Name=\"VmWorkflowHost\" Version=\"2017.0\" "
                          "Executable=\"" +
                              QFile::encodeName(m_files.path()) + "/no-such-host\" InfoId=\"2017\"/>"));
    }
    qputenv("VELMORA_APPLICATIONS_PATH", QFile::encodeName(manifests));
    const bool expectHost = manifestFolder == QLatin1String("missing");
    QVERIFY(QTest::qWaitFor(
        [&] {
            const auto hosts =
                Velmora::OstrelAdapter::ApplicationManager::GetInstance()->GetInstalledApplications(
                    QStringLiteral("Id_VmWorkflowHost"), QString());
            return hosts.isEmpty() != expectHost;
        },
        10000));

    Workflow* workflow =
        WorkflowManager::GetInstance()->GetWorkflow(Wide(QStringLiteral("Id_Box")), Wide(QString()));
    QVERIFY(workflow);

    QString title;
    QString text;
    int icon = -1;
    int buttons = -1;
    bool sawBox = false;
    bool hadParent = true;
    QTimer closer;
    closer.setInterval(20);
    QObject::connect(&closer, &QTimer::timeout, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box)
            return;
        sawBox = true;
        title = box->windowTitle();
        text = box->text();
        icon = box->icon();
        buttons = int(box->standardButtons());
        hadParent = box->parentWidget() != nullptr;
        box->done(0);
    });
    closer.start();
    const bool started = WorkflowManager::GetInstance()->ExecuteWorkflow(workflow, ApplicationMenu);
    closer.stop();

    QVERIFY(!started);
    QVERIFY(sawBox);
    QCOMPARE(title, QStringLiteral("Box title"));
    QCOMPARE(text,
             Velmora::OstrelAdapter::OstrelAdapterUtility::FormatApplicationStarupErrorMessage(
                 QStringLiteral("VmWorkflowHost"), Velmora::OstrelAdapter::Application::StartupError(error)));
    QCOMPARE(icon, int(QMessageBox::Critical));
    QCOMPARE(buttons, int(QMessageBox::NoButton));
    QVERIFY(!hadParent);
}

QTEST_MAIN(LaunchFailureBoxTest)
#include "tst_launchfailurebox.moc"
