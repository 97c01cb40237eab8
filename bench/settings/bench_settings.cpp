// SPDX-License-Identifier: MIT
// The per-user settings file at the scale of a large catalogue.
//
// Every template writes its "ShowIntroductionOnExecute" choice as the catalogue is torn down, all
// of them inside one batch of the manager's settings store, so the file holds one element per
// template ever seen. Measured here, each the median of five runs on a file made afresh:
// - the teardown when the file already holds every value (every teardown after the first),
// - the teardown of a fresh profile, with no file yet,
// - the teardown when one template's choice changed,
// - the first lookup of a store on a file of that many entries (the whole file is read),
// - then every template's lookup in the file read, outside and inside a read session.
// Before each teardown the store has looked every template up, as the catalogue scan does.
// Everything happens below a temporary folder: the user's own files are never touched.
// Usage: bench_settings [templates, default 10000]

#include "workflow/WorkflowFile.h"
#include "workflow/WorkflowSettings.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace Velmora::WorkflowCore;

namespace {

const QString kShow = QStringLiteral("ShowIntroductionOnExecute");

QString TemplateId(int i)
{
    return QStringLiteral("ID_TEMPLATE_%1_7F3A").arg(i);
}

// The choice of each template in the file every later teardown finds.
bool Shows(int i)
{
    return i % 3 != 0;
}

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double Ms(const QElapsedTimer& timer)
{
    return double(timer.nsecsElapsed()) / 1e6;
}

// What the catalogue scan does before a teardown: it looks every template's choice up.
void LookEveryTemplateUp(WorkflowSettingsStore& store, int count)
{
    for (int i = 0; i < count; ++i)
        ReadShowIntroductionOnExecute(store, TemplateId(i));
}

double TimeTeardown(WorkflowSettingsStore& store, int count, int changed)
{
    QElapsedTimer timer;
    timer.start();
    {
        WorkflowSettingsStore::Batch batch(store);
        for (int i = 0; i < count; ++i)
            WriteShowIntroductionOnExecute(store, TemplateId(i), i == changed ? !Shows(i) : Shows(i));
    }
    return Ms(timer);
}

QByteArray ReadAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool Restore(const QString& path, const QByteArray& bytes)
{
    QFile::remove(path);
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

} // namespace

int main(int argc, char** argv)
{
    QTemporaryDir root;
    if (!root.isValid())
        return 1;
    // Every folder the library or Qt could take for the user's own points into the temporary one.
    for (const auto& [name, sub] :
         {std::pair{"HOME", "home"}, std::pair{"XDG_DATA_HOME", "data"}, std::pair{"XDG_CACHE_HOME", "cache"},
          std::pair{"XDG_CONFIG_HOME", "config"}, std::pair{"XDG_CONFIG_DIRS", "etc"},
          std::pair{"XDG_DATA_DIRS", "share"}, std::pair{"XDG_STATE_HOME", "state"},
          std::pair{"XDG_RUNTIME_DIR", "runtime"}})
    {
        const QString folder = root.filePath(QString::fromLatin1(sub));
        QDir().mkpath(folder);
        QFile::setPermissions(folder,
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        qputenv(name, QFile::encodeName(folder));
    }
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    const int count = arguments.size() > 1 ? std::max(1, arguments.at(1).toInt()) : 10000;
    const int runs = 5;

    const QString file = WorkflowSettingsFile();
    if (file.isEmpty() || !file.startsWith(root.path()))
    {
        std::fprintf(stderr, "no settings file below the temporary folder\n");
        return 1;
    }
    QFile::remove(file);
    {
        WorkflowSettingsStore store;
        WorkflowSettingsStore::Batch batch(store);
        for (int i = 0; i < count; ++i)
            WriteShowIntroductionOnExecute(store, TemplateId(i), Shows(i));
    }
    const QByteArray full = ReadAll(file);
    std::printf("settings file of %d entries: %lld bytes\n", count, static_cast<long long>(full.size()));

    std::vector<double> unchanged, fresh, oneChanged, firstRead;
    bool leftAsItWas = true;
    bool changeLanded = true;
    bool freshComplete = true;
    for (int run = 0; run < runs; ++run)
    {
        {
            Restore(file, full);
            WorkflowSettingsStore store;
            LookEveryTemplateUp(store, count);
            unchanged.push_back(TimeTeardown(store, count, -1));
            leftAsItWas = leftAsItWas && ReadAll(file) == full;
        }
        {
            QFile::remove(file);
            WorkflowSettingsStore store;
            LookEveryTemplateUp(store, count);
            fresh.push_back(TimeTeardown(store, count, -1));
            WorkflowSettingsStore check;
            for (int i = 0; i < count; i += std::max(1, count / 100))
                freshComplete =
                    freshComplete && ReadShowIntroductionOnExecute(check, TemplateId(i)) == Shows(i);
        }
        {
            Restore(file, full);
            WorkflowSettingsStore store;
            LookEveryTemplateUp(store, count);
            const int changed = count / 2;
            oneChanged.push_back(TimeTeardown(store, count, changed));
            WorkflowSettingsStore check;
            changeLanded =
                changeLanded && ReadShowIntroductionOnExecute(check, TemplateId(changed)) != Shows(changed);
        }
        {
            Restore(file, full);
            WorkflowSettingsStore store;
            QElapsedTimer timer;
            timer.start();
            const QString value = store.Read(TemplateId(count - 1), kShow);
            firstRead.push_back(Ms(timer));
            changeLanded = changeLanded && !value.isEmpty();
        }
    }
    // What a scan pays per template lookup once the file is read, without and with a session.
    std::vector<double> lookups, sessionLookups;
    for (int run = 0; run < runs; ++run)
    {
        Restore(file, full);
        WorkflowSettingsStore store;
        store.Read(TemplateId(0), kShow);
        QElapsedTimer timer;
        timer.start();
        LookEveryTemplateUp(store, count);
        lookups.push_back(Ms(timer));
        WorkflowSettingsStore::ReadSession session(store);
        timer.restart();
        LookEveryTemplateUp(store, count);
        sessionLookups.push_back(Ms(timer));
    }
    std::printf("checks: unchanged file left byte for byte %s; fresh file complete %s; changed value and "
                "first read right %s\n",
                leftAsItWas ? "yes" : "no", freshComplete ? "yes" : "no", changeLanded ? "yes" : "no");
    std::printf("settings teardown of %d templates, file unchanged: %.1f ms\n", count, Median(unchanged));
    std::printf("settings teardown of %d templates, no file yet: %.1f ms\n", count, Median(fresh));
    std::printf("settings teardown of %d templates, one value changed: %.1f ms\n", count, Median(oneChanged));
    std::printf("settings first read of a file of %d entries: %.1f ms\n", count, Median(firstRead));
    std::printf("settings lookups of %d templates in a read file: %.1f ms, %.1f ms in a read session\n",
                count, Median(lookups), Median(sessionLookups));
    return 0;
}
