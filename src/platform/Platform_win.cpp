// SPDX-License-Identifier: MIT
#include "platform/Platform.h"

#include <QFile>
#include <QFileInfo>

#include <QDir>
#include <QSettings>
#include <QStandardPaths>

#include <shlobj.h>
#include <windows.h>

namespace Velmora::WorkflowCore::Platform {

QString ApplicationDataFolder()
{
    wchar_t buffer[MAX_PATH] = {};
    if (!SHGetSpecialFolderPathW(nullptr, buffer, CSIDL_APPDATA, TRUE))
        return QString();
    const QString folder = QString::fromWCharArray(buffer);
    if (folder.isEmpty())
        return QString();
    return QDir::cleanPath(QDir::fromNativeSeparators(folder));
}

std::unique_ptr<QSettings> MachineSettings(const QString& key)
{
    QString path = QStringLiteral("HKEY_LOCAL_MACHINE\\Software\\Velmora\\") + key;
    path.replace(QLatin1Char('/'), QLatin1Char('\\'));
    return std::make_unique<QSettings>(path, QSettings::NativeFormat);
}

bool IsProcessAlive(qint64 processId)
{
    if (processId <= 0)
        return false;
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, static_cast<DWORD>(processId));
    if (!process)
        return GetLastError() == ERROR_ACCESS_DENIED;
    DWORD code = 0;
    const bool running = GetExitCodeProcess(process, &code) && code == STILL_ACTIVE;
    CloseHandle(process);
    return running;
}

qint64 CurrentProcessId()
{
    return static_cast<qint64>(GetCurrentProcessId());
}

FileIdentity IdentifyFile(const QString& path)
{
    FileIdentity identity;
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(reinterpret_cast<const wchar_t*>(QDir::toNativeSeparators(path).utf16()),
                              GetFileExInfoStandard, &data))
        return identity;
    identity.exists = true;
    identity.size = (static_cast<qint64>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    identity.modifiedNs = ((static_cast<qint64>(data.ftLastWriteTime.dwHighDateTime) << 32) |
                           data.ftLastWriteTime.dwLowDateTime) *
                          100;
    identity.inode =
        (static_cast<quint64>(data.ftCreationTime.dwHighDateTime) << 32) | data.ftCreationTime.dwLowDateTime;
    return identity;
}

FolderNames::FolderNames(const QString& folder) : m_folder(folder)
{
    const QDir dir(folder);
    if (!dir.exists())
        return;
    m_names =
        dir.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Unsorted);
}

FolderNames::~FolderNames() = default;

ListedFile FolderNames::Identify(qsizetype i) const
{
    ListedFile file;
    if (i < 0 || i >= m_names.size())
        return file;
    const QFileInfo entry(QDir(m_folder), m_names.at(i));
    file.name = m_names.at(i);
    file.hidden = entry.isHidden();
    file.regularFile = entry.isFile();
    file.identity = IdentifyFile(entry.absoluteFilePath());
    return file;
}

ListedFile StatusOf(const QString& path)
{
    ListedFile file;
    const QFileInfo entry(path);
    file.hidden = entry.isHidden();
    file.regularFile = entry.isFile();
    file.identity = IdentifyFile(path);
    return file;
}

FolderStatus::~FolderStatus() = default;

ListedFile FolderStatus::Of(const QString& path)
{
    return StatusOf(path);
}

QList<ListedFile> ListFolder(const QString& folder)
{
    const FolderNames names(folder);
    QList<ListedFile> listed;
    for (qsizetype i = 0; i < names.Names().size(); ++i)
        listed.append(names.Identify(i));
    return listed;
}

bool ReadRegularFile(const QString& path, QByteArray& bytes)
{
    if (!QFileInfo(path).isFile())
        return false;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    bytes = file.readAll();
    return file.error() == QFileDevice::NoError;
}

QString CacheFolder()
{
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
    return folder.isEmpty() ? QString() : QDir::cleanPath(folder);
}

QString RuntimeFolder()
{
    // Named objects on this platform are private to the session already; a per-user folder
    // under the local application data serves what needs a path.
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation);
    if (folder.isEmpty() || !QDir().mkpath(folder))
        return QString();
    return QDir::cleanPath(folder);
}

QString ExecutableFolder()
{
    wchar_t path[32768];
    const DWORD length = ::GetModuleFileNameW(nullptr, path, DWORD(sizeof(path) / sizeof(path[0])));
    if (length == 0 || length >= sizeof(path) / sizeof(path[0]))
        return QString();
    return QFileInfo(QString::fromWCharArray(path, int(length))).absolutePath();
}

QString ModuleFolder(const void* address)
{
    HMODULE module = nullptr;
    if (!::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                  GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                              static_cast<LPCWSTR>(address), &module))
        return QString();
    wchar_t path[32768];
    const DWORD length = ::GetModuleFileNameW(module, path, DWORD(sizeof(path) / sizeof(path[0])));
    if (length == 0 || length >= sizeof(path) / sizeof(path[0]))
        return QString();
    return QFileInfo(QString::fromWCharArray(path, int(length))).absolutePath();
}

// Nothing to reserve here: the system's heap is left to hand out its pages as it does.
HeapReservation::HeapReservation(size_t bytes, Populating populating)
{
    Q_UNUSED(bytes);
    Q_UNUSED(populating);
}

HeapReservation::~HeapReservation() = default;

void PrepareMemory(void* begin, size_t bytes)
{
    Q_UNUSED(begin);
    Q_UNUSED(bytes);
}

} // namespace Velmora::WorkflowCore::Platform
