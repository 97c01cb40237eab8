#pragma once

#include <QString>
#include <QStringList>

#include <memory>

class QSettings;

// The one place that knows the operating system. Everything else in the library asks here.
namespace Velmora::WorkflowCore::Platform {

// The user's roaming application-data folder, created when missing and cleaned; empty when the
// platform gives none.
QString ApplicationDataFolder();

// The machine-wide settings store for one key below "Software\Velmora", such as
// "Workflow/2015.0". The caller owns the returned object.
std::unique_ptr<QSettings> MachineSettings(const QString& key);

// Whether a process with that id still runs (a process of another user counts as running).
bool IsProcessAlive(qint64 processId);

qint64 CurrentProcessId();

// A per-user folder for runtime objects (sockets, segments), private to the user (mode 0700).
// Empty when none can be had.
QString RuntimeFolder();

} // namespace Velmora::WorkflowCore::Platform
