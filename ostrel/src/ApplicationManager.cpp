#include <OstrelAdapter/ApplicationManager.h>

namespace Velmora::OstrelAdapter {

class ApplicationManagerPrivate
{
public:
    QString appName;
    QString locale;
};

namespace {
ApplicationManager* s_instance = nullptr;
}

ApplicationManager::ApplicationManager(const QString& appName) : d(new ApplicationManagerPrivate)
{
    d->appName = appName;
}

ApplicationManager::~ApplicationManager()
{
    delete d;
}

bool ApplicationManager::Initialize(const QString& appName)
{
    if (!s_instance)
        s_instance = new ApplicationManager(appName);
    return true;
}

void ApplicationManager::Uninitialize()
{
    delete s_instance;
    s_instance = nullptr;
}

ApplicationManager* ApplicationManager::GetInstance()
{
    return s_instance;
}

QString ApplicationManager::GetApplicationName() const
{
    return d->appName;
}

void ApplicationManager::SetCurrentLocale(const QString& locale)
{
    d->locale = locale;
}

QString ApplicationManager::GetCurrentLocale() const
{
    return d->locale;
}

} // namespace Velmora::OstrelAdapter
