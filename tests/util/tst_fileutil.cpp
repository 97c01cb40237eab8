// SPDX-License-Identifier: MIT
// File finding, the well-known folders, parenthesis matching, digests and search-path splitting.

#include "util/FileUtil.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimeZone>
#include <QtTest>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

class tst_FileUtil : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;
    QTemporaryDir m_dir;
    QString Path(const QString& name) const { return QDir::cleanPath(m_dir.filePath(name)); }
    QStringList Paths(const QStringList& names) const
    {
        QStringList result;
        for (const QString& name : names)
            result << Path(name);
        return result;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(m_dir.isValid());
        for (const char* name : {"b.workflow", "a.workflow", "c.xml", "d.txt", "sub/e.workflow",
                                 "sub/deeper/f.workflow", "sub/g.txt", "other/h.xml"})
            QVERIFY(WriteFile(Path(QString::fromLatin1(name)), "x"));
    }

    void patternsListBothKinds()
    {
        const QStringList found =
            FindFiles(m_dir.path(), QStringLiteral("*.workflow|*.xml"), QDir::Files, QDir::Name, false);
        QCOMPARE(found, Paths({QStringLiteral("a.workflow"), QStringLiteral("b.workflow"),
                               QStringLiteral("c.xml")}));
    }

    void emptyPatternsListEverythingTheFilterAdmits()
    {
        QCOMPARE(FindFiles(m_dir.path(), QString(), QDir::Files, QDir::Name, false),
                 Paths({QStringLiteral("a.workflow"), QStringLiteral("b.workflow"), QStringLiteral("c.xml"),
                        QStringLiteral("d.txt")}));
        QCOMPARE(FindFiles(m_dir.path(), QString(), QDir::Files | QDir::Dirs, QDir::Name, false),
                 Paths({QStringLiteral("a.workflow"), QStringLiteral("b.workflow"), QStringLiteral("c.xml"),
                        QStringLiteral("d.txt"), QStringLiteral("other"), QStringLiteral("sub")}));
    }

    void emptyPiecesOfPatternsAreDropped()
    {
        QCOMPARE(FindFiles(m_dir.path(), QStringLiteral("|*.xml||"), QDir::Files, QDir::Name, false),
                 Paths({QStringLiteral("c.xml")}));
    }

    void noFilterMeansFiles()
    {
        QCOMPARE(FindFiles(m_dir.path(), QStringLiteral("*"), QDir::NoFilter, QDir::Name, false),
                 Paths({QStringLiteral("a.workflow"), QStringLiteral("b.workflow"), QStringLiteral("c.xml"),
                        QStringLiteral("d.txt")}));
    }

    void sortOrderIsHonoured()
    {
        QCOMPARE(FindFiles(m_dir.path(), QStringLiteral("*.workflow"), QDir::Files,
                           QDir::Name | QDir::Reversed, false),
                 Paths({QStringLiteral("b.workflow"), QStringLiteral("a.workflow")}));
    }

    void recursiveSearchWithoutFolders()
    {
        QCOMPARE(FindFiles(m_dir.path(), QStringLiteral("*.workflow"), QDir::Files, QDir::Name, true),
                 Paths({QStringLiteral("a.workflow"), QStringLiteral("b.workflow"),
                        QStringLiteral("sub/e.workflow"), QStringLiteral("sub/deeper/f.workflow")}));
    }

    void recursiveSearchListsFolderBeforeItsFiles()
    {
        const QStringList found = FindFiles(m_dir.path(), QStringLiteral("*.workflow"),
                                            QDir::Files | QDir::AllDirs, QDir::Name, true);
        QCOMPARE(found,
                 Paths({QStringLiteral("a.workflow"), QStringLiteral("b.workflow"), QStringLiteral("other"),
                        QStringLiteral("sub"), QStringLiteral("sub/e.workflow"), QStringLiteral("sub/deeper"),
                        QStringLiteral("sub/deeper/f.workflow")}));
    }

    void pathNamingAFileListsThatFile()
    {
        QCOMPARE(FindFiles(Path(QStringLiteral("c.xml")), QStringLiteral("*.workflow"), QDir::Files,
                           QDir::Name, false),
                 Paths({QStringLiteral("c.xml")}));
    }

    void pathNamingAFileSearchesOnlyThatNameBelow()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("named/c.xml")), "x"));
        QVERIFY(WriteFile(Path(QStringLiteral("named/sub/c.xml")), "x"));
        QVERIFY(WriteFile(Path(QStringLiteral("named/sub/d.workflow")), "x"));
        QCOMPARE(FindFiles(Path(QStringLiteral("named/c.xml")), QStringLiteral("*.workflow"), QDir::Files,
                           QDir::Name, true),
                 Paths({QStringLiteral("named/c.xml"), QStringLiteral("named/sub/c.xml")}));
    }

    void subfoldersUseTheSamePatterns()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("same/a.workflow")), "x"));
        QVERIFY(WriteFile(Path(QStringLiteral("same/b.txt")), "x"));
        QVERIFY(WriteFile(Path(QStringLiteral("same/sub/c.workflow")), "x"));
        QVERIFY(WriteFile(Path(QStringLiteral("same/sub/d.txt")), "x"));
        QCOMPARE(FindFiles(Path(QStringLiteral("same")), QStringLiteral("|*.workflow||"), QDir::Files,
                           QDir::Name, true),
                 Paths({QStringLiteral("same/a.workflow"), QStringLiteral("same/sub/c.workflow")}));
        QCOMPARE(FindFiles(Path(QStringLiteral("same")), QString(), QDir::Files, QDir::Name, true),
                 Paths({QStringLiteral("same/a.workflow"), QStringLiteral("same/b.txt"),
                        QStringLiteral("same/sub/c.workflow"), QStringLiteral("same/sub/d.txt")}));
    }

    void linkedFoldersNeverLoop()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("cycle/a/x.workflow")), "x"));
        QVERIFY(WriteFile(Path(QStringLiteral("cycle/b/y.workflow")), "x"));
        // a/back leads to the top, b/side to a sibling: both would repeat what is listed anyway.
        QVERIFY(QFile::link(Path(QStringLiteral("cycle")), Path(QStringLiteral("cycle/a/back"))));
        QVERIFY(QFile::link(Path(QStringLiteral("cycle/b")), Path(QStringLiteral("cycle/a/side"))));
        QStringList found = FindFiles(Path(QStringLiteral("cycle")), QStringLiteral("*.workflow"),
                                      QDir::Files, QDir::Name, true);
        QCOMPARE(found.removeDuplicates(), 0);
        QVERIFY(found.contains(Path(QStringLiteral("cycle/a/x.workflow"))));
        QVERIFY(found.contains(Path(QStringLiteral("cycle/b/y.workflow"))));
        for (const QString& file : found)
            QVERIFY2(file.count(QLatin1Char('/')) < Path(QStringLiteral("cycle")).count(QLatin1Char('/')) + 4,
                     qPrintable(file));
    }

    void missingPathListsNothing()
    {
        QVERIFY(FindFiles(Path(QStringLiteral("nowhere")), QStringLiteral("*"), QDir::Files, QDir::Name, true)
                    .isEmpty());
        QVERIFY(FindFiles(QString(), QStringLiteral("*"), QDir::Files, QDir::Name, false).isEmpty());
    }

    void resultsAreAbsoluteAndClean()
    {
        const QString messy = m_dir.path() + QStringLiteral("/sub/../sub/./");
        QCOMPARE(FindFiles(messy, QStringLiteral("*.workflow"), QDir::Files, QDir::Name, false),
                 Paths({QStringLiteral("sub/e.workflow")}));
    }

    void applicationFolderIsTheProgramsFolder()
    {
        QCOMPARE(ApplicationFolder(), QDir::cleanPath(QCoreApplication::applicationDirPath()));
        QVERIFY(QDir::isAbsolutePath(ApplicationFolder()));
    }

    void hostWithoutApplicationObjectStillHasAFolder()
    {
        const QString child = QCoreApplication::applicationDirPath() + QStringLiteral("/noapp_child");
        QVERIFY(QFile::exists(child));
        QVERIFY(WriteFile(
            Path(QStringLiteral("noapp/one.workflow")),
            "<Workflows><Workflow Id=\"Id_One\" Name=\"One\"/><Workflow Id=\"Id_Two\"/></Workflows>"));
        QProcess process;
        process.start(child, {Path(QStringLiteral("noapp"))});
        QVERIFY(process.waitForFinished(30000));
        QCOMPARE(process.exitCode(), 0);
        const QStringList lines =
            QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QCOMPARE(lines,
                 (QStringList{QDir::cleanPath(QCoreApplication::applicationDirPath()), QStringLiteral("2")}));
        // Neither the folder lookups nor the hub may make Qt warn in such a host.
        QCOMPARE(QString::fromUtf8(process.readAllStandardError()), QString());
    }

    void applicationDataFolderFollowsTheEnvironment()
    {
        QCOMPARE(ApplicationDataFolder(), QDir::cleanPath(m_env.DataHome()));
        QVERIFY(QFileInfo(ApplicationDataFolder()).isDir());
    }

    void missingApplicationDataFolderIsCreated()
    {
        QVERIFY(m_env.MoveHome(m_env.Root() + QStringLiteral("/fresh")));
        const QString fresh = m_env.DataHome();
        QVERIFY(!QFileInfo::exists(fresh));
        const QString folder = ApplicationDataFolder();
        QVERIFY(m_env.MoveHome(m_env.StartHome()));
        QCOMPARE(folder, fresh);
        QVERIFY(QFileInfo(fresh).isDir());
    }

    void matchingParenthesis_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("position");
        QTest::addColumn<int>("expected");
        QTest::newRow("outer") << QStringLiteral("(a(b)c)") << 0 << 6;
        QTest::newRow("inner") << QStringLiteral("(a(b)c)") << 2 << 4;
        QTest::newRow("unclosed") << QStringLiteral("(a") << 0 << -1;
        QTest::newRow("not a parenthesis") << QStringLiteral("(a(b)c)") << 1 << -1;
        QTest::newRow("closing") << QStringLiteral("(a)") << 2 << -1;
        QTest::newRow("negative") << QStringLiteral("(a)") << -1 << -1;
        QTest::newRow("past end") << QStringLiteral("(a)") << 3 << -1;
        QTest::newRow("empty") << QStringLiteral("") << 0 << -1;
        QTest::newRow("adjacent") << QStringLiteral("()()") << 2 << 3;
    }
    void matchingParenthesis()
    {
        QFETCH(QString, text);
        QFETCH(int, position);
        QFETCH(int, expected);
        QCOMPARE(MatchingParenthesis(text, position), expected);
    }

    void digestText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("digest");
        // Digests computed independently with another tool.
        QTest::newRow("empty") << QStringLiteral("") << QStringLiteral("d41d8cd98f00b204e9800998ecf8427e");
        QTest::newRow("abc") << QStringLiteral("abc") << QStringLiteral("900150983cd24fb0d6963f7d28e17f72");
        QTest::newRow("tr") << QStringLiteral("tr(Name)")
                            << QStringLiteral("64c82ec2eb6431c640cf21b58d9852c3");
        QTest::newRow("leading blank")
            << QStringLiteral(" tr(Name)") << QStringLiteral("3106eb1c20d39405374fbdd98da29018");
        QTest::newRow("utf-8") << QStringLiteral("\u00e9 tr(Name)")
                               << QStringLiteral("32ff134ca060ec197ddb87555e4f2003");
    }
    void digestText()
    {
        QFETCH(QString, text);
        QFETCH(QString, digest);
        QCOMPARE(DigestText(text), digest);
    }

    void searchPathsDropEmptyPieces()
    {
        QCOMPARE(SplitSearchPaths(QStringLiteral("a;;b")),
                 (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
        QCOMPARE(SplitSearchPaths(QStringLiteral(";a;a;")),
                 (QStringList{QStringLiteral("a"), QStringLiteral("a")}));
        QVERIFY(SplitSearchPaths(QString()).isEmpty());
    }

    // Within a scan's table of conversions a date reads exactly as it reads alone, the second
    // time as the first, in local time; outside it nothing is kept.
    void datesReadTheSameThroughTheConversionTable()
    {
        const QStringList texts = {QStringLiteral("2016-03-01T12:00:00"),
                                   QStringLiteral(" 2016-03-01T12:00:00 "),
                                   QStringLiteral("2016-03-01T12:00:00Z"),
                                   QStringLiteral("2016-03-01T12:00:00+02:00"),
                                   QStringLiteral("2016-03-01T12:00:00.250"),
                                   QStringLiteral("1969-12-31T23:59:59"),
                                   QStringLiteral("2016-02-30T00:00:00"),
                                   QStringLiteral("not a date"),
                                   QString(),
                                   QStringLiteral("2016-10-30T01:30:00")};
        QList<QDateTime> alone;
        for (const QString& text : texts)
            alone.append(DateFromUtcText(text));
        QVERIFY(alone.at(0).isValid());
        QVERIFY(!alone.at(7).isValid());
        {
            const LocalTimeConversions conversions;
            for (int round = 0; round < 2; ++round)
            {
                for (qsizetype i = 0; i < texts.size(); ++i)
                {
                    const QDateTime read = DateFromUtcText(texts.at(i));
                    QCOMPARE(read, alone.at(i));
                    QCOMPARE(read.isValid(), alone.at(i).isValid());
                    if (read.isValid())
                    {
                        QCOMPARE(read.timeSpec(), Qt::LocalTime);
                        QCOMPARE(read.toString(Qt::ISODateWithMs), alone.at(i).toString(Qt::ISODateWithMs));
                    }
                }
            }
            const QDateTime utc(QDate(2001, 2, 3), QTime(4, 5, 6), QTimeZone::utc());
            QCOMPARE(ToLocalTime(utc), utc.toLocalTime());
            QCOMPARE(ToLocalTime(utc).timeSpec(), Qt::LocalTime);
            QCOMPARE(ToLocalTime(utc), utc);
        }
        QCOMPARE(DateFromUtcText(texts.at(0)), alone.at(0));
    }

    // A path cleaned in one go reads as QDir::cleanPath reads it, and a path that is clean
    // already comes back as it is, without a copy.
    void cleanPathAgreesWithTheFolderCleaning()
    {
        const QStringList parts = {QStringLiteral("a"),     QStringLiteral("b.c"), QString(),
                                   QStringLiteral("."),     QStringLiteral(".."),  QStringLiteral("..."),
                                   QStringLiteral(".a"),    QStringLiteral("x y"), QStringLiteral("d\\e"),
                                   QStringLiteral("\u00e9")};
        quint32 state = 20261125;
        const auto next = [&state](quint32 below) {
            state = state * 1664525u + 1013904223u;
            return (state >> 8) % below;
        };
        int alreadyClean = 0;
        for (int round = 0; round < 20000; ++round)
        {
            QString path = next(2) ? QStringLiteral("/") : QString();
            const quint32 count = next(5);
            for (quint32 i = 0; i < count; ++i)
            {
                if (i > 0)
                    path += QLatin1Char('/');
                path += parts.at(int(next(quint32(parts.size()))));
            }
            if (next(4) == 0)
                path += QLatin1Char('/');
            const QString cleaned = CleanPath(path);
            QVERIFY2(cleaned == QDir::cleanPath(path), qPrintable(path));
            if (cleaned == path && !path.isEmpty() && cleaned.constData() == path.constData())
                ++alreadyClean;
        }
        QVERIFY(alreadyClean > 1000);
        for (const char* clean : {"/", "a", "/a/b.c", "/a/.b/c..d/...", "relative/path.workflow"})
        {
            const QString path = QString::fromLatin1(clean);
            QCOMPARE(CleanPath(path).constData(), path.constData());
        }
        for (const char* unclean : {"//", "/a/", "a//b", "./a", "a/.", "a/../b", "..", "/..", "a\\b"})
        {
            const QString path = QString::fromLatin1(unclean);
            QCOMPARE(CleanPath(path), QDir::cleanPath(path));
        }
    }
};

QTEST_GUILESS_MAIN(tst_FileUtil)
#include "tst_fileutil.moc"
