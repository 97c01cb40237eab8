// What another user of the machine may try against a user's runtime objects and settings. Run as
// that other user by the isolation test.
//   isolation_probe plant SHARED        plants, in the shared folder SHARED, the objects a
//                                       victim's runtime folder, segment and hub endpoints would
//                                       be, so that a careless victim would use them
//   isolation_probe attack SHARED SEGMENT ENDPOINT SETTINGS
//                                       tries to attach the victim's segment, to connect to its
//                                       hub endpoint, to read and to replace its settings file,
//                                       and to plant a link beside it; prints one line per try,
//                                       "denied <what>" or "reached <what>"

#include "execution/ExecutingRegistry.h"
#include "platform/SharedSegment.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLocalSocket>

#include <cstdio>

#include <sys/stat.h>
#include <unistd.h>

using namespace Velmora::WorkflowCore;

namespace {

void Say(bool reached, const char* what)
{
    std::printf("%s %s\n", reached ? "reached" : "denied", what);
}

int Plant(const QString& shared)
{
    // The folder a victim without a runtime folder of its own would fall back to, open to all.
    const QString fallback = QStringLiteral("%1/runtime-uid0").arg(shared);
    QDir().mkpath(fallback);
    ::chmod(QFile::encodeName(fallback).constData(), 0777);
    QDir().mkpath(fallback + QStringLiteral("/velmora-ostrel"));
    ::chmod(QFile::encodeName(fallback + QStringLiteral("/velmora-ostrel")).constData(), 0777);
    QFile segment(fallback + QLatin1Char('/') + ExecutingRegistry::SegmentKey());
    if (segment.open(QIODevice::WriteOnly))
        segment.write(QByteArray(ExecutingRegistry::SegmentSize, '\0'));
    segment.close();
    ::chmod(QFile::encodeName(segment.fileName()).constData(), 0666);
    // And the same objects straight in the shared folder, one of them as a link.
    QFile::link(segment.fileName(), shared + QLatin1Char('/') + ExecutingRegistry::SegmentKey());
    QDir().mkpath(shared + QStringLiteral("/velmora-ostrel"));
    ::chmod(QFile::encodeName(shared + QStringLiteral("/velmora-ostrel")).constData(), 0777);
    std::puts("planted");
    return 0;
}

int Attack(const QString& shared, const QString& segmentPath, const QString& endpoint,
           const QString& settings)
{
    Q_UNUSED(shared);
    QFile segment(segmentPath);
    Say(segment.open(QIODevice::ReadOnly), "segment read");
    Say(segment.open(QIODevice::ReadWrite), "segment write");
    // Through the library, with the victim's folder as this process's runtime folder.
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(QFileInfo(segmentPath).absolutePath()));
    Platform::SharedSegment attached(ExecutingRegistry::SegmentKey(), ExecutingRegistry::SegmentSize);
    Say(attached.Attach(Platform::SharedSegment::Access::ReadOnly), "segment attach");
    ExecutingRegistry registry(false);
    Say(!registry.ReadAll().isEmpty(), "registry entries");

    QLocalSocket socket;
    socket.connectToServer(endpoint);
    Say(socket.waitForConnected(3000), "hub endpoint");

    QFile file(settings);
    Say(file.open(QIODevice::ReadOnly), "settings read");
    Say(file.open(QIODevice::WriteOnly | QIODevice::Append), "settings write");
    const QString folder = QFileInfo(settings).absolutePath();
    QFile spare(folder + QStringLiteral("/planted.xml"));
    Say(spare.open(QIODevice::WriteOnly), "settings folder write");
    Say(QFile::rename(QDir::tempPath() + QStringLiteral("/nothing-here"), settings) ||
            QFile::link(QStringLiteral("/etc/passwd"), folder + QStringLiteral("/WorkflowSettings.xml.link")),
        "settings replace or link");
    Say(QFile::link(QStringLiteral("/tmp"), QFileInfo(folder).absolutePath() + QStringLiteral("/Workflows")),
        "link beside the settings folder");
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QString mode = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    if (mode == QLatin1String("plant") && argc == 3)
        return Plant(QString::fromLocal8Bit(argv[2]));
    if (mode == QLatin1String("attack") && argc == 6)
        return Attack(QString::fromLocal8Bit(argv[2]), QString::fromLocal8Bit(argv[3]),
                      QString::fromLocal8Bit(argv[4]), QString::fromLocal8Bit(argv[5]));
    return 2;
}
