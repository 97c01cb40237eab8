// SPDX-License-Identifier: MIT
#include "workflow/WorkflowFile.h"

#include "util/FileUtil.h"
#include "util/XmlFiler.h"
#include "util/XmlStreamReading.h"
#include "workflow/WorkflowImp.h"
#include "workflow/WorkflowSettings.h"

#include <QDir>
#include <QFileInfo>

namespace Velmora::WorkflowCore {

namespace {

const QString kWorkflowsElement = QStringLiteral("Workflows");
const QString kWorkflowElement = QStringLiteral("Workflow");
const QString kXlfFile = QStringLiteral("XlfFile");
const QString kId = QStringLiteral("Id");
const QString kShowIntroductionOnExecute = QStringLiteral("ShowIntroductionOnExecute");

QString BoolText(bool value)
{
    return value ? QStringLiteral("True") : QStringLiteral("False");
}

QString ImageListText(const QMap<int, QString>& table, const QString& asRead)
{
    if (table.isEmpty())
        return asRead;
    return QStringList(table.values()).join(QLatin1Char('|'));
}

QDateTime EpochInLocalTime()
{
    return ToLocalTime(QDateTime(QDate(1970, 1, 1), QTime(0, 0, 0), Qt::UTC));
}

} // namespace

bool ReadShowIntroductionOnExecute(WorkflowSettingsStore& settings, const QString& id)
{
    const QString show = settings.Read(id, kShowIntroductionOnExecute);
    return show.isEmpty() || show.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0;
}

void WriteShowIntroductionOnExecute(WorkflowSettingsStore& settings, const QString& id, bool show)
{
    settings.Write(id, kShowIntroductionOnExecute, BoolText(show));
}

QString TranslateThroughFileCatalog(XmlFiler& filer, const CatalogLookup& catalogFor)
{
    const QString xlfFile = filer.GetAttribute(kXlfFile, QString());
    if (!xlfFile.isEmpty())
        filer.SetTranslator(catalogFor(xlfFile));
    return xlfFile;
}

bool IsWorkflowWithId(const XmlFiler& filer, const QString& id)
{
    return filer.GetAttribute(kId, QString()).compare(id, Qt::CaseInsensitive) == 0;
}

bool GoToWorkflowWithId(XmlFiler& filer, const QString& id)
{
    while (!IsWorkflowWithId(filer, id))
    {
        if (!filer.GoToNextSibling())
            return false;
    }
    return true;
}

void ReadWorkflow(XmlFiler& filer, WorkflowImp& record)
{
    WorkflowFields& m = record.Fields();
    m.SourceFile = QDir::cleanPath(filer.GetFileName());
    m.Plugin = filer.GetAttribute(QStringLiteral("Plugin"), QString());
    m.IsTemplate = filer.GetBoolAttribute(QStringLiteral("IsTemplate"), true);
    m.IsReadOnly = filer.GetBoolAttribute(QStringLiteral("IsReadOnly"), false);
    m.TemplateId = filer.GetAttribute(QStringLiteral("TemplateId"), QString());
    m.Id = filer.GetAttribute(kId, QString());
    m.HelpId = filer.GetAttribute(QStringLiteral("HelpId"), QString());
    m.Name = filer.GetAttribute(QStringLiteral("Name"), QString());
    m.Description = filer.GetAttribute(QStringLiteral("Description"), QString());
    m.Tooltip = filer.GetAttribute(QStringLiteral("Tooltip"), QString());
    m.Tag = filer.GetAttribute(QStringLiteral("Tag"), QString());
    m.Keywords = filer.GetAttribute(QStringLiteral("Keywords"), QString());
    m.UIFile = filer.GetAttribute(QStringLiteral("UIFile"), QString());
    m.PrimaryProduct = filer.GetAttribute(QStringLiteral("PrimaryProduct"), QString());
    m.TargetProduct = filer.GetAttribute(QStringLiteral("TargetProduct"), QString());
    m.RequiredProducts = filer.GetAttribute(QStringLiteral("RequiredProducts"), QString());
    m.RequiredProductsDisplayText =
        filer.GetAttribute(QStringLiteral("RequiredProductsDisplayText"), QString());
    record.KeysChanged();
    m.CreatedDate = filer.GetDateTimeAttribute(QStringLiteral("CreatedDate"), EpochInLocalTime());
    m.LastModifiedDate = filer.GetDateTimeAttribute(QStringLiteral("LastModifiedDate"), m.CreatedDate);
    m.TemplateImage = filer.GetAttribute(QStringLiteral("TemplateImage"), QString());
    m.ModifiedImage = filer.GetAttribute(QStringLiteral("ModifiedImage"), QString());
    // The image tables follow the texts just read when they are next asked for.
    m.TemplateImages.clear();
    m.ModifiedImages.clear();
    m.ImageTablesBuilt = false;

    m.Introduction.clear();
    filer.PushPosition();
    if (filer.GoToPath(QStringLiteral("Introduction")))
        m.Introduction = filer.GetText();
    filer.PopPosition();

    if (m.IsTemplate)
    {
        m.ShowIntroductionOnExecute = record.WithSettings(
            [&m](WorkflowSettingsStore& settings) { return ReadShowIntroductionOnExecute(settings, m.Id); });
    }
    m.IsModified = false;

    m.Settings.clear();
    filer.PushPosition();
    if (filer.GoToPath(QStringLiteral("Settings")))
        m.Settings = CompactText(filer.GetInnerXml());
    filer.PopPosition();
}

void ReadWorkflow(const WorkflowElementData& element, const QString& fileName, const QString& sourceFile,
                  XlfCatalog* catalog, WorkflowImp& record)
{
    // Attribute texts go through the translation step, when the file has a catalogue; flags and
    // dates are read as written.
    const auto text = [&](WorkflowAttribute attribute) {
        if (!element.Has(attribute))
            return QString();
        return catalog ? TranslatedFileText(catalog, fileName, element.Value(attribute))
                       : element.Value(attribute);
    };
    const auto flag = [&](WorkflowAttribute attribute, bool defaultValue) {
        const QString& value = element.Value(attribute);
        if (value.isEmpty())
            return defaultValue;
        // As the files spell them nearly always, then in any case.
        if (value == QLatin1String("True"))
            return true;
        if (value == QLatin1String("False"))
            return false;
        if (value.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0)
            return true;
        if (value.compare(QLatin1String("false"), Qt::CaseInsensitive) == 0)
            return false;
        bool ok = false;
        const qulonglong number = value.toULongLong(&ok, 10);
        return ok ? number != 0 : defaultValue;
    };
    // The default is made only when the date is missing or unreadable: nearly every file has
    // its dates, and the epoch in local time costs more to make than a written date to read.
    const auto date = [&](WorkflowAttribute attribute, const auto& defaultValue) {
        const QString& value = element.Value(attribute);
        if (!value.isEmpty())
        {
            const QDateTime read = DateFromUtcText(value);
            if (read.isValid())
                return read;
        }
        return QDateTime(defaultValue());
    };

    WorkflowFields& m = record.Fields();
    m.SourceFile = sourceFile;
    m.Plugin = text(AttrPlugin);
    m.IsTemplate = flag(AttrIsTemplate, true);
    m.IsReadOnly = flag(AttrIsReadOnly, false);
    m.TemplateId = text(AttrTemplateId);
    m.Id = text(AttrId);
    m.HelpId = text(AttrHelpId);
    m.Name = text(AttrName);
    m.Description = text(AttrDescription);
    m.Tooltip = text(AttrTooltip);
    m.Tag = text(AttrTag);
    m.Keywords = text(AttrKeywords);
    m.UIFile = text(AttrUIFile);
    m.PrimaryProduct = text(AttrPrimaryProduct);
    m.TargetProduct = text(AttrTargetProduct);
    m.RequiredProducts = text(AttrRequiredProducts);
    m.RequiredProductsDisplayText = text(AttrRequiredProductsDisplayText);
    record.KeysChanged();
    m.CreatedDate = date(AttrCreatedDate, [] { return EpochInLocalTime(); });
    m.LastModifiedDate = date(AttrLastModifiedDate, [&m] { return m.CreatedDate; });
    m.TemplateImage = text(AttrTemplateImage);
    m.ModifiedImage = text(AttrModifiedImage);
    m.TemplateImages.clear();
    m.ModifiedImages.clear();
    m.ImageTablesBuilt = false;

    m.Introduction.clear();
    if (element.hasIntroduction)
        m.Introduction = element.introduction.isNull()
                             ? QString()
                             : TranslatedFileText(catalog, fileName, element.introduction);

    if (m.IsTemplate)
    {
        m.ShowIntroductionOnExecute = record.WithSettings(
            [&m](WorkflowSettingsStore& settings) { return ReadShowIntroductionOnExecute(settings, m.Id); });
    }
    m.IsModified = false;

    m.Settings.clear();
    if (element.hasSettings)
        m.Settings = element.settings;
}

bool LoadWorkflow(WorkflowImp& record, const QString& file, const QString& id)
{
    XlfCatalog* catalog = nullptr;
    bool catalogKnown = false;
    const auto catalogFor = [&](const QString& xlfFile) {
        if (!catalogKnown && !xlfFile.isEmpty())
        {
            if (WorkflowCatalogue* catalogue = record.Catalogue())
                catalog = catalogue->TranslationCatalog(xlfFile);
        }
        catalogKnown = true;
        return catalog;
    };
    // The id asked for is matched against the Id as the record would read it, translated.
    const auto matches = [&](const QString& xlfFile, const WorkflowElementData& element) {
        return id.isEmpty() || TranslatedFileText(catalogFor(xlfFile), file, element.Value(AttrId))
                                       .compare(id, Qt::CaseInsensitive) == 0;
    };
    // Only the first match is kept: the other workflows of a large file cost nothing.
    const auto keep = [&](const WorkflowFileData& kept, const WorkflowElementData& element) {
        return kept.elements.isEmpty() && matches(kept.xlfFile, element);
    };
    WorkflowFileData data;
    if (ReadWorkflowFileData(file, kWorkflowElement, data, keep) != StreamReadResult::Read)
        return false;
    for (const WorkflowElementData& element : std::as_const(data.elements))
    {
        if (matches(data.xlfFile, element))
        {
            ReadWorkflow(element, file, CleanPath(file), catalogFor(data.xlfFile), record);
            return true;
        }
    }
    return false;
}

bool LoadWorkflowFromDocument(WorkflowImp& record, const QString& file, const QString& id)
{
    XmlFiler filer;
    if (!filer.Open(file))
        return false;
    TranslateThroughFileCatalog(filer, [&record](const QString& xlfFile) {
        WorkflowCatalogue* catalogue = record.Catalogue();
        return catalogue ? catalogue->TranslationCatalog(xlfFile) : nullptr;
    });
    if (!filer.GoToPath(kWorkflowElement))
        return false;
    if (!id.isEmpty() && !GoToWorkflowWithId(filer, id))
        return false;
    ReadWorkflow(filer, record);
    return true;
}

bool MayReplaceWorkflowFile(const QString& target, const QString& id)
{
    const QFileInfo info(target);
    if (info.isSymLink())
        return false;
    if (!info.exists())
        return true;
    XmlFiler filer(false);
    if (!filer.Open(target))
        return false;
    if (!filer.GoToFirstChild())
        return true;
    do
    {
        if (!IsWorkflowWithId(filer, id))
            return false;
    } while (filer.GoToNextSibling());
    return true;
}

bool WriteWorkflow(WorkflowImp& record, const QString& name, const QString& target, const QString& id)
{
    WorkflowFields& m = record.Fields();
    XmlFiler filer(false);
    filer.Create(kWorkflowsElement);
    filer.SetAttribute(kXlfFile, m.XlfFile);
    filer.GoToOrCreatePath(kWorkflowElement, true, false);
    filer.SetAttribute(QStringLiteral("Plugin"), m.Plugin);
    filer.SetAttribute(QStringLiteral("TemplateId"), m.TemplateId);
    filer.SetAttribute(QStringLiteral("TemplateImage"), ImageListText(m.TemplateImages, m.TemplateImage));
    filer.SetAttribute(QStringLiteral("ModifiedImage"), ImageListText(m.ModifiedImages, m.ModifiedImage));
    filer.SetAttribute(QStringLiteral("Tooltip"), m.Tooltip);
    filer.SetAttribute(QStringLiteral("Tag"), m.Tag);
    filer.SetAttribute(QStringLiteral("UIFile"), m.UIFile);
    filer.SetAttribute(QStringLiteral("PrimaryProduct"), m.PrimaryProduct);
    filer.SetAttribute(QStringLiteral("RequiredProducts"), m.RequiredProducts);
    filer.SetAttribute(QStringLiteral("TargetProduct"), m.TargetProduct);
    filer.SetAttribute(QStringLiteral("RequiredProductsDisplayText"), m.RequiredProductsDisplayText);
    filer.SetAttribute(QStringLiteral("CreatedDate"), UtcTextFromDate(m.CreatedDate));
    // The modification time moves even when the save then fails.
    m.LastModifiedDate = QDateTime::currentDateTime();
    filer.SetAttribute(QStringLiteral("LastModifiedDate"), UtcTextFromDate(m.LastModifiedDate));
    filer.SetAttribute(QStringLiteral("IsReadOnly"), BoolText(m.IsReadOnly));
    // Every written file describes a user workflow: templates are only ever installed.
    filer.SetAttribute(QStringLiteral("IsTemplate"), BoolText(false));
    filer.SetAttribute(kId, id);
    filer.SetAttribute(QStringLiteral("HelpId"), m.HelpId);
    filer.SetAttribute(QStringLiteral("Name"), name);
    filer.SetAttribute(QStringLiteral("Description"), m.Description);
    filer.SetAttribute(QStringLiteral("Keywords"), m.Keywords);
    filer.GoToOrCreatePath(QStringLiteral("Settings"), true, false);
    filer.AppendXml(m.Settings.ToString());
    filer.EnsureXmlDeclaration();
    return filer.Save(target);
}

} // namespace Velmora::WorkflowCore
