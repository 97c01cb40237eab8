// SPDX-License-Identifier: MIT
// A stand-in host application: writes its own program path and its arguments, one a line, to the
// file named by VMWF_LAUNCH_RECORD, listens on the hub so that the launcher's link succeeds, and
// ends after a short while.

#include <OstrelAdapter/ApplicationManager.h>

#include <QCoreApplication>
#include <QFile>
#include <QTimer>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    Velmora::OstrelAdapter::ApplicationManager::Initialize(QStringLiteral("launch_recorder"));
    // Written whole under another name and renamed, so that a reader never sees half of it.
    const QString target = qEnvironmentVariable("VMWF_LAUNCH_RECORD");
    QFile record(target + QStringLiteral(".part"));
    if (!target.isEmpty() && record.open(QIODevice::WriteOnly | QIODevice::Truncate))
    {
        const QStringList lines =
            QStringList(QCoreApplication::applicationFilePath()) + application.arguments().mid(1);
        for (const QString& line : lines)
            record.write(line.toUtf8() + '\n');
        record.close();
        QFile::rename(record.fileName(), target);
    }
    QTimer::singleShot(3000, &application, &QCoreApplication::quit);
    const int status = application.exec();
    Velmora::OstrelAdapter::ApplicationManager::Uninitialize();
    return status;
}
