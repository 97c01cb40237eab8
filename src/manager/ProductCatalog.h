// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

// The products workflows name: display names, the names and versions the application hub knows
// them by, and which of them are installed.
namespace Velmora::WorkflowCore {

struct ProductRecord
{
    QString Id;
    QString Name;
    QString Version;
    QString OstrelName;
};

class ProductCatalog
{
public:
    // Reads "Products.xml" beside the application, else from the folder the machine settings name.
    // A missing or broken file leaves the catalogue empty.
    void Load();
    // Reads one catalogue file; later elements with the same id replace earlier ones.
    bool LoadFile(const QString& path);
    // Where Load looks: beside the application, else the machine settings' folder.
    static QString LocateCatalogFile();

    // A copy of the record for the id's code, with Version set to the id's version part; every
    // other field is empty for an unknown code.
    ProductRecord Lookup(const QString& productId) const;
    QString DisplayName(const QString& productId) const;

    // The names of ","-separated ids (empty pieces dropped), joined by ",".
    QString NameList(const QString& productIds) const;
    // The hub names and versions of ","-separated ids (empty pieces dropped), each joined by ",".
    void OstrelNameList(const QString& productIds, QString& names, QString& versions) const;
    // The hub's info ids of the installed applications matching each id, empty pieces kept.
    QList<qint64> InstalledProducts(const QString& productIds) const;

    int Count() const { return int(m_products.size()); }

private:
    QMap<QString, ProductRecord> m_products;
};

} // namespace Velmora::WorkflowCore
