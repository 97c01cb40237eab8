// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QDomDocument>
#include <QDomElement>
#include <QString>
#include <QStringView>

#include <vector>

// The one door through which the library reads and writes its XML files: a DOM document with a
// cursor (the current element) moved by "/"-separated element paths.
namespace Velmora::WorkflowCore {

// No file of the library nests anywhere near this deep. A deeper one is taken as unreadable:
// building, writing out and destroying a document tree all recurse once per level.
constexpr int kMaxXmlDepth = 512;

// Whether the markup nests no deeper than kMaxXmlDepth; a streaming pass that never recurses.
bool XmlDepthIsBounded(const QByteArray& markup);

// Whether the text holds a character no XML file may hold: a control character other than tab,
// line feed and carriage return, U+FFFE, U+FFFF, or half a surrogate pair. The filer drops them
// when it reads a document and before it writes one, so that what it writes reads back the same.
bool HoldsNonXmlCharacter(QStringView text);
// Takes those characters out of the text; true when there were any.
bool RemoveNonXmlCharacters(QString& text);

// Writes markup made elsewhere to path the way XmlFiler::Save writes a document: atomically,
// never through a link, never over a file made read-only, keeping the replaced file's
// permissions. The caller answers for the bytes being a well-formed UTF-8 file.
bool SaveXmlBytes(const QString& path, const QByteArray& bytes);

class XlfCatalog;

class XmlFiler
{
public:
    // With translate set and a translator attached, tr(...) texts read through the filer come
    // back translated.
    explicit XmlFiler(bool translate = true);

    XmlFiler(const XmlFiler&) = delete;
    XmlFiler& operator=(const XmlFiler&) = delete;

    // Reads and parses the file; on success the cursor is the document element. A missing,
    // unreadable or malformed file gives false and leaves the filer as it was.
    bool Open(const QString& path);
    // Writes the document indented by four spaces, atomically: the previous file stays whole
    // unless the new one is committed. False, and no file touched, without a document element.
    bool Save(const QString& path);
    // Starts a new document whose element is rootName, and puts the cursor on it.
    void Create(const QString& rootName);
    void EnsureXmlDeclaration();

    const QString& GetFileName() const { return m_fileName; }
    QDomDocument& GetDocument() { return m_document; }
    QDomElement GetDocumentElement() const { return m_document.documentElement(); }
    // The cursor as an element; null when the cursor is null or not an element.
    QDomElement GetCurrentElement() const { return m_current.toElement(); }

    bool GoToFirstChild();
    bool GoToNextSibling();
    bool GoToPath(const QString& path);
    bool GoToOrCreatePath(const QString& path, bool create, bool appendNewLast);
    void RemoveElement(const QString& path);
    QString GetCurrentPath() const;

    QString GetAttribute(const QString& name, const QString& defaultValue) const;
    bool GetBoolAttribute(const QString& name, bool defaultValue) const;
    QDateTime GetDateTimeAttribute(const QString& name, const QDateTime& defaultValue) const;
    // Sets an attribute of the current element; false when the cursor is not an element.
    bool SetAttribute(const QString& name, const QString& value);
    QString GetText() const;
    QString GetInnerXml() const;
    bool AppendXml(const QString& fragment);

    void PushPosition();
    void PopPosition();

    void SetTranslator(XlfCatalog* translator) { m_translator = translator; }
    XlfCatalog* GetTranslator() const { return m_translator; }

    // The translation step every attribute and element text goes through.
    QString TranslatedText(const QString& text) const;

private:
    bool FollowPath(const QString& path, bool create, bool appendNewLast);

    QString m_fileName;
    QDomDocument m_document;
    QDomNode m_current;
    std::vector<QDomNode> m_savedPositions;
    QString m_spareText;
    XlfCatalog* m_translator = nullptr;
    bool m_translate;
};

} // namespace Velmora::WorkflowCore
