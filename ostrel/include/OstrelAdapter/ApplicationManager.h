#pragma once

#include <OstrelAdapter/OstrelAdapterExport.h>

#include <QString>

namespace Velmora::OstrelAdapter {

class ApplicationManagerPrivate;

// The per-process entry into the application hub. One instance exists between Initialize and
// Uninitialize; GetInstance returns null outside that window.
class OSTRELADAPTER_EXPORT ApplicationManager
{
public:
    // Creates the instance for the application named appName. A second call while an instance
    // exists keeps the first one and returns true.
    static bool Initialize(const QString& appName);
    // Destroys the instance; harmless when there is none.
    static void Uninitialize();
    static ApplicationManager* GetInstance();

    QString GetApplicationName() const;

    // The locale the hub uses for the texts it shows (start-up errors, application names).
    void SetCurrentLocale(const QString& locale);
    QString GetCurrentLocale() const;

    ApplicationManager(const ApplicationManager&) = delete;
    ApplicationManager& operator=(const ApplicationManager&) = delete;

private:
    explicit ApplicationManager(const QString& appName);
    ~ApplicationManager();

    ApplicationManagerPrivate* d;
};

} // namespace Velmora::OstrelAdapter
