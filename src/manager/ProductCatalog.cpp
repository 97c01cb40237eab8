// SPDX-License-Identifier: MIT
#include "manager/ProductCatalog.h"

#include "platform/Platform.h"
#include "util/FileUtil.h"
#include "util/XmlFiler.h"

#include <OstrelAdapter/ApplicationInfo.h>
#include <OstrelAdapter/ApplicationManager.h>

#include <QDir>
#include <QFileInfo>
#include <QSettings>

namespace Velmora::WorkflowCore {

namespace {

const QString kCatalogFileName = QStringLiteral("Products.xml");

} // namespace

QString ProductCatalog::LocateCatalogFile()
{
    const QString besideApplication = ApplicationFolder() + QLatin1Char('/') + kCatalogFileName;
    if (QFileInfo::exists(besideApplication))
        return besideApplication;
    const auto settings = Platform::MachineSettings(Platform::LibrarySettingsKey());
    const QString folder = settings->value(QStringLiteral("ProductsXmlFileSearchPath")).toString();
    QString path = folder + QLatin1Char('\\') + kCatalogFileName;
    path.replace(QLatin1Char('\\'), QLatin1Char('/'));
    return QDir::cleanPath(path);
}

void ProductCatalog::Load()
{
    LoadFile(LocateCatalogFile());
}

bool ProductCatalog::LoadFile(const QString& path)
{
    // Product names are not translated through tr(...): the catalogue is read as written.
    XmlFiler filer(false);
    if (!filer.Open(path))
        return false;
    if (!filer.GoToFirstChild())
        return true;
    do
    {
        ProductRecord record;
        record.Id = filer.GetAttribute(QStringLiteral("Id"), QString()).toLower();
        record.Name = filer.GetAttribute(QStringLiteral("Name"), QString());
        record.OstrelName = filer.GetAttribute(QStringLiteral("OstrelName"), QString());
        m_products.insert(record.Id, record);
    } while (filer.GoToNextSibling());
    return true;
}

ProductRecord ProductCatalog::Lookup(const QString& productId) const
{
    const QStringList pieces = productId.split(QLatin1Char(':'));
    const QString code = pieces.value(0).toLower();
    ProductRecord record;
    const auto found = m_products.constFind(code);
    if (found != m_products.constEnd())
        record = *found;
    record.Version = pieces.size() >= 2 ? pieces.at(1) : QString();
    return record;
}

QString ProductCatalog::DisplayName(const QString& productId) const
{
    return Lookup(productId).Name;
}

QString ProductCatalog::NameList(const QString& productIds) const
{
    QStringList names;
    for (const QString& id : productIds.split(QLatin1Char(','), Qt::SkipEmptyParts))
        names << DisplayName(id);
    return names.join(QLatin1Char(','));
}

void ProductCatalog::OstrelNameList(const QString& productIds, QString& names, QString& versions) const
{
    QStringList nameList;
    QStringList versionList;
    for (const QString& id : productIds.split(QLatin1Char(','), Qt::SkipEmptyParts))
    {
        const ProductRecord record = Lookup(id);
        nameList << record.OstrelName;
        versionList << record.Version;
    }
    names = nameList.join(QLatin1Char(','));
    versions = versionList.join(QLatin1Char(','));
}

QList<qint64> ProductCatalog::InstalledProducts(const QString& productIds) const
{
    QList<qint64> infoIds;
    auto* hub = OstrelAdapter::ApplicationManager::GetInstance();
    if (!hub)
        return infoIds;
    // Empty pieces are kept: each is asked of the hub as an unknown product.
    for (const QString& id : productIds.split(QLatin1Char(',')))
    {
        const ProductRecord record = Lookup(id);
        const QList<OstrelAdapter::ApplicationInfo> installed =
            hub->GetInstalledApplications(record.OstrelName, record.Version);
        for (const OstrelAdapter::ApplicationInfo& info : installed)
            infoIds << info.GetInfoId();
    }
    return infoIds;
}

} // namespace Velmora::WorkflowCore
