// SPDX-License-Identifier: MIT
// The workflow browser's window on the bundled sample data: filtering, selecting, details, a
// failed start shown in the window, the run status line and the language switch.

#include "BrowserWindow.h"

#include <VmWorkflowCore/WorkflowManager.h>

#include "FileFixtures.h"
#include "TestEnvironment.h"

#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QTextBrowser>
#include <QtTest>

#include <initializer_list>

using namespace VmWorkflowBrowser;
using namespace VmWorkflowTest;
using Velmora::WorkflowCore::WorkflowManager;

namespace {

QStringList Strings(std::initializer_list<const char*> items)
{
    QStringList list;
    for (const char* item : items)
        list << QString::fromUtf8(item);
    return list;
}

} // namespace

class tst_BrowserWindow : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        // The tests do not run beside the product catalogue the tools ship with: point at it.
        QVERIFY(WriteFile(m_env.ConfigDirs() + QStringLiteral("/Velmora/Workflow/2015.0.conf"),
                          "[General]\nProductsXmlFileSearchPath=" VMWF_SHARE_DIR "/products\n"));
        qunsetenv("VELMORA_APPLICATIONS_PATH");
    }
    void cleanup() { QVERIFY(!WorkflowManager::GetInstance()); }

    void startsOnTheSamplesForTheFirstProduct()
    {
        BrowserWindow window;
        QVERIFY(WorkflowManager::GetInstance());
        QVERIFY(window.Notice()->isHidden());
        QCOMPARE(window.ProductChoice()->currentData().toString(), QStringLiteral("alpha"));
        QCOMPARE(window.ProductChoice()->currentText(), QStringLiteral("Alpha Studio"));
        // No filter: the workflows whose primary product is the current one.
        QCOMPARE(window.VisibleNames(), Strings({"Monthly report", "My monthly report"}));
        QVERIFY(!window.RunButton()->isEnabled());
    }

    void filterSelectDetailsAndPicture()
    {
        BrowserWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QTest::keyClicks(window.FilterField(), QStringLiteral("IsTemplate=true"));
        QCOMPARE(window.FilterField()->text(), QStringLiteral("IsTemplate=true"));
        QCOMPARE(window.VisibleNames(),
                 Strings({"Monthly report", "Data export", "Legacy import", "Peer review"}));
        QCOMPARE(window.WorkflowList()->model()->rowCount(), 4);

        QVERIFY(window.SelectByName(QStringLiteral("Data export")));
        const QString details = window.Details()->toPlainText();
        QVERIFY2(details.contains(QStringLiteral("Exports the selected data for the partner system.")),
                 qPrintable(details));
        QVERIFY2(details.contains(QStringLiteral("Choose the data, then the format.")), qPrintable(details));
        QVERIFY2(details.contains(QStringLiteral("Beta Ledger (beta)")), qPrintable(details));
        QVERIFY2(details.contains(QStringLiteral("Target product:\nBeta Ledger (beta:2017)")),
                 qPrintable(details));
        QVERIFY2(details.contains(QStringLiteral("Required products:\nalpha & beta")), qPrintable(details));
        QVERIFY2(details.contains(QStringLiteral("Requires:\nAlpha and Beta")), qPrintable(details));
        QVERIFY2(details.contains(QStringLiteral("Read-only:\nyes")), qPrintable(details));
        // Alpha Studio and Beta Ledger are among the sample products installed.
        QVERIFY2(details.contains(QStringLiteral("Runs here:\nyes")), qPrintable(details));

        // A workflow whose required product is not installed does not run here.
        QVERIFY(window.SelectByName(QStringLiteral("Legacy import")));
        QVERIFY2(window.Details()->toPlainText().contains(QStringLiteral("Runs here:\nno")),
                 qPrintable(window.Details()->toPlainText()));
        QVERIFY(window.SelectByName(QStringLiteral("Data export")));
        QVERIFY(window.RunButton()->isEnabled());

        // Each row carries its 16-pixel picture.
        const QVariant image = window.WorkflowList()->model()->index(1, 0).data(Qt::DecorationRole);
        QCOMPARE(image.value<QImage>().size(), QSize(16, 16));

        const QImage picture = window.grab().toImage();
        QVERIFY(!picture.isNull());
        QTemporaryDir out;
        QVERIFY(picture.save(out.filePath(QStringLiteral("browser.png"))));
        const QByteArray keep = qgetenv("VMWF_BROWSER_PICTURE");
        if (!keep.isEmpty())
            QVERIFY(picture.save(QFile::decodeName(keep)));
    }

    void sortChoiceOrdersTheList()
    {
        BrowserWindow window;
        QTest::keyClicks(window.FilterField(), QStringLiteral("IsTemplate=true"));
        window.SortChoice()->setCurrentIndex(window.SortChoice()->findData(QStringLiteral("Name:1")));
        QCOMPARE(window.VisibleNames(),
                 Strings({"Peer review", "Monthly report", "Legacy import", "Data export"}));
        window.SortChoice()->setCurrentIndex(window.SortChoice()->findData(QStringLiteral("Name:0")));
        QCOMPARE(window.VisibleNames(),
                 Strings({"Data export", "Legacy import", "Monthly report", "Peer review"}));
    }

    void otherProductShowsItsWorkflows()
    {
        BrowserWindow window;
        window.ProductChoice()->setCurrentIndex(window.ProductChoice()->findData(QStringLiteral("gamma")));
        QCOMPARE(window.VisibleNames(), Strings({"Peer review", "Review A", "Review B"}));
    }

    void failedStartIsShownInTheWindow()
    {
        BrowserWindow window;
        QVERIFY(window.SelectByName(QStringLiteral("My monthly report")));
        // No host is installed for the test, so the launch shows its critical box; close it.
        bool boxShown = false;
        QTimer closer;
        QObject::connect(&closer, &QTimer::timeout, [&boxShown] {
            if (QWidget* box = QApplication::activeModalWidget())
            {
                boxShown = true;
                if (auto* dialog = qobject_cast<QDialog*>(box))
                    dialog->done(0);
                else
                    box->close();
            }
        });
        const QDir temporary(m_env.TempDir());
        const QStringList copiesBefore =
            temporary.entryList({QStringLiteral("Temp_*.workflow")}, QDir::Files);
        closer.start(50);
        QTest::mouseClick(window.RunButton(), Qt::LeftButton);
        closer.stop();
        QVERIFY(boxShown);
        // The failed launch still wrote its copy of the workflow, and that stays: it must lie in the
        // test's own temporary folder, which goes with the test, not in the machine's.
        QStringList copies = temporary.entryList({QStringLiteral("Temp_*.workflow")}, QDir::Files);
        for (const QString& known : copiesBefore)
            copies.removeOne(known);
        QCOMPARE(copies.size(), 1);
        QVERIFY2(copies.first().startsWith(QStringLiteral("Temp_My monthly report_{")),
                 qPrintable(copies.first()));
        QVERIFY(!window.Notice()->isHidden());
        QVERIFY(window.Notice()->text().contains(QStringLiteral("The workflow could not be started.")));
    }

    void statusLineFollowsRuns()
    {
        BrowserWindow window;
        QCOMPARE(window.RunStatus()->text(), QStringLiteral("No workflow is running."));
        auto* notifications = WorkflowManager::GetInstance()->GetNotificationManager();
        QVERIFY(notifications);
        emit notifications->WorkflowExecutionBeginning(nullptr);
        QCOMPARE(window.RunStatus()->text(), QStringLiteral("Running: a workflow"));
        emit notifications->WorkflowExecutionFinished(nullptr);
        QCOMPARE(window.RunStatus()->text(), QStringLiteral("Finished: a workflow"));
    }

    void languageSwitchReadsTheTextsAgain()
    {
        BrowserWindow window;
        const QStringList english = window.VisibleNames();
        window.LanguageChoice()->setCurrentIndex(window.LanguageChoice()->findData(QStringLiteral("de-DE")));
        const QStringList german = window.VisibleNames();
        QCOMPARE(german.size(), english.size());
        QVERIFY2(german != english, qPrintable(german.join(QLatin1Char('|'))));
        QCOMPARE(QLocale().name(), QStringLiteral("de_DE"));
        window.LanguageChoice()->setCurrentIndex(window.LanguageChoice()->findData(QStringLiteral("en-US")));
        QCOMPARE(window.VisibleNames(), english);
    }

    void emptySearchPathsAreReportedInTheWindow()
    {
        QTemporaryDir empty;
        BrowserWindow window(empty.path());
        QVERIFY(!window.Notice()->isHidden());
        QVERIFY(
            window.Notice()->text().contains(QStringLiteral("No workflows were found on the search paths")));
        QVERIFY(window.Notice()->text().contains(empty.path()));
        QCOMPARE(window.VisibleNames(), QStringList());
    }
};

QTEST_MAIN(tst_BrowserWindow)
#include "tst_browserwindow.moc"
