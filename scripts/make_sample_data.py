#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes the bundled sample data under share/workflows: templates with images in two sizes,
user workflows made from them (one orphan, two sharing an id), and XLIFF translations of the
templates' tr(...) texts for en-US, de-DE and fr-FR. Run it again after changing the texts below."""

import hashlib
import os
import struct
import zlib
from xml.sax.saxutils import escape, quoteattr

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "share", "workflows")
TEMPLATES = os.path.join(ROOT, "templates")
USER = os.path.join(ROOT, "user")


def png(path, width, rgb):
    """A solid square PNG of the given width, written without any imaging library."""
    row = b"\x00" + bytes(rgb) * width
    raw = row * width
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)
    data = (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, width, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b""))
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.write(data)


def unit_id(text):
    return hashlib.md5(text.encode("utf-8")).hexdigest()


# The file of the sample plug-in that carries the sample workflows out (plugins/sample).
SAMPLE_PLUGIN = "libVmWorkflowSamplePlugin.so"

# Each template: attributes, introduction, settings, translations (de, fr) of its tr() texts.
TEMPLATE_LIST = [
    dict(Id="Id_MonthlyReportTemplate", Name="tr(Monthly report)",
         Description="tr(Collects the month's figures into one report.)",
         Plugin=SAMPLE_PLUGIN, PrimaryProduct="alpha", TargetProduct="alpha:2016", RequiredProducts="alpha",
         RequiredProductsDisplayText="Alpha", Keywords="report month figures", HelpId="help.report",
         TemplateImage="images/report16.png|images/report32.png", CreatedDate="2015-10-01T09:00:00",
         intro="tr(This workflow gathers the figures of one month.)", color=(200, 60, 60)),
    dict(Id="Id_DataExportTemplate", Name="tr(Data export)",
         Description="tr(Exports the selected data for the partner system.)",
         Plugin=SAMPLE_PLUGIN, PrimaryProduct="beta", TargetProduct="beta:2017", RequiredProducts="alpha & beta",
         RequiredProductsDisplayText="Alpha and Beta", Keywords="export data",
         TemplateImage="images/export16.png|images/export32.png", CreatedDate="2015-11-12T14:30:00",
         intro="tr(Choose the data, then the format.)", color=(60, 160, 60)),
    dict(Id="Id_PeerReviewTemplate", Name="tr(Peer review)",
         Description="tr(Sends a document round for review.)",
         Plugin=SAMPLE_PLUGIN, PrimaryProduct="gamma", TargetProduct="gamma:2016.1",
         RequiredProducts="(alpha | gamma) & beta:2017", RequiredProductsDisplayText="Alpha or Gamma, and Beta 2017",
         Keywords="review", TemplateImage="images/review16.png|images/review32.png",
         CreatedDate="2016-01-20T08:15:00", intro="tr(Reviewers are asked one after the other.)",
         color=(60, 60, 200)),
    dict(Id="Id_LegacyImportTemplate", Name="tr(Legacy import)",
         Description="tr(Imports files of the old format.)",
         Plugin=SAMPLE_PLUGIN, PrimaryProduct="delta", TargetProduct="delta:2015", RequiredProducts="delta:2015",
         RequiredProductsDisplayText="Delta 2015", Keywords="import legacy",
         TemplateImage="images/legacy16.png|images/legacy32.png", CreatedDate="2014-06-30T17:45:00",
         intro="tr(Old files are converted as they are read.)", color=(150, 150, 40)),
]

TRANSLATIONS = {
    "de-DE": {
        "tr(Monthly report)": "Monatsbericht",
        "tr(Collects the month's figures into one report.)": "Fasst die Zahlen des Monats in einem Bericht zusammen.",
        "tr(This workflow gathers the figures of one month.)": "Dieser Ablauf sammelt die Zahlen eines Monats.",
        "tr(Data export)": "Datenexport",
        "tr(Exports the selected data for the partner system.)": "Exportiert die gewählten Daten für das Partnersystem.",
        "tr(Choose the data, then the format.)": "Erst die Daten wählen, dann das Format.",
        "tr(Peer review)": "Kollegiale Prüfung",
        "tr(Sends a document round for review.)": "Schickt ein Dokument zur Prüfung herum.",
        "tr(Reviewers are asked one after the other.)": "Die Prüfer werden nacheinander gefragt.",
        "tr(Legacy import)": "Altdatenimport",
        "tr(Imports files of the old format.)": "Importiert Dateien im alten Format.",
        "tr(Old files are converted as they are read.)": "Alte Dateien werden beim Lesen umgewandelt.",
    },
    "fr-FR": {
        "tr(Monthly report)": "Rapport mensuel",
        "tr(Collects the month's figures into one report.)": "Rassemble les chiffres du mois dans un rapport.",
        "tr(This workflow gathers the figures of one month.)": "Ce flux réunit les chiffres d'un mois.",
        "tr(Data export)": "Export de données",
        "tr(Exports the selected data for the partner system.)": "Exporte les données choisies pour le système partenaire.",
        "tr(Choose the data, then the format.)": "Choisissez les données, puis le format.",
        "tr(Peer review)": "Relecture",
        "tr(Sends a document round for review.)": "Fait circuler un document pour relecture.",
        "tr(Reviewers are asked one after the other.)": "Les relecteurs sont sollicités l'un après l'autre.",
        "tr(Legacy import)": "Import historique",
        "tr(Imports files of the old format.)": "Importe les fichiers de l'ancien format.",
        "tr(Old files are converted as they are read.)": "Les anciens fichiers sont convertis à la lecture.",
    },
}

# English is the language the texts are written in: its file turns tr(Text) into Text.
TRANSLATIONS["en-US"] = {source: source[3:-1] for source in TRANSLATIONS["de-DE"]}

ATTRIBUTE_ORDER = ["Plugin", "IsTemplate", "Id", "TemplateId", "HelpId", "Name", "Description", "Keywords",
                   "PrimaryProduct", "TargetProduct", "RequiredProducts", "RequiredProductsDisplayText",
                   "TemplateImage", "ModifiedImage", "CreatedDate", "LastModifiedDate", "IsReadOnly"]


def element(fields, intro=None, settings=None, tag="Workflow"):
    attrs = "".join("\n        %s=%s" % (k, quoteattr(fields[k])) for k in ATTRIBUTE_ORDER if k in fields)
    out = "    <%s%s>\n" % (tag, attrs)
    if intro:
        out += "        <Introduction><![CDATA[%s]]></Introduction>\n" % intro
    out += "        <Settings>\n%s        </Settings>\n" % (settings or "")
    out += "    </%s>\n" % tag
    return out


def document(elements, xlf=""):
    root = '<Workflows XlfFile="%s">\n' % xlf if xlf else "<Workflows>\n"
    return '<?xml version="1.0"?>\n' + root + "".join(elements) + "</Workflows>\n"


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8", newline="\n") as f:
        f.write(text)


def steps(*items):
    """Each item is an action name, or a pair of an action name and a dict of further attributes."""
    out = ""
    for i, item in enumerate(items):
        name, extra = item if isinstance(item, tuple) else (item, {})
        attrs = "".join(" %s=%s" % (k, quoteattr(v)) for k, v in extra.items())
        out += '            <Step Order="%d" Action=%s%s/>\n' % (i + 1, quoteattr(name), attrs)
    return out


def main():
    elements = []
    for t in TEMPLATE_LIST:
        base = t["TemplateImage"].split("|")[0].split("/")[1].replace("16.png", "")
        png(os.path.join(TEMPLATES, "images", base + "16.png"), 16, t["color"])
        png(os.path.join(TEMPLATES, "images", base + "32.png"), 32, t["color"])
        fields = {k: v for k, v in t.items() if k not in ("intro", "color")}
        fields["IsTemplate"] = "True"
        elements.append(element(fields, t["intro"], steps("Open", "Collect", "Finish")))
    write(os.path.join(TEMPLATES, "SampleTemplates.workflow"), document(elements, "SampleTexts"))

    for locale, table in TRANSLATIONS.items():
        units = "".join(
            '            <trans-unit id="%s">\n                <source>%s</source>\n'
            '                <target>%s</target>\n            </trans-unit>\n'
            % (unit_id(source), escape(source), escape(target)) for source, target in table.items())
        write(os.path.join(TEMPLATES, locale, "SampleTexts.xlf"),
              '<?xml version="1.0" encoding="utf-8"?>\n'
              '<xliff version="1.2" xmlns="urn:oasis:names:tc:xliff:document:1.2">\n'
              '    <file original="SampleTemplates.workflow" datatype="plaintext" source-language="en" '
              'target-language="%s">\n        <body>\n%s        </body>\n    </file>\n</xliff>\n' % (locale, units))

    png(os.path.join(USER, "images", "mine16.png"), 16, (240, 160, 0))
    png(os.path.join(USER, "images", "mine32.png"), 32, (240, 160, 0))
    users = [
        ("My monthly report.workflow",
         dict(IsTemplate="False", Id="Id_MyMonthlyReport_{6f1c2a0e-1b2c-4d5e-8f90-a1b2c3d4e5f6}",
              TemplateId="Id_MonthlyReportTemplate", Name="My monthly report",
              Description="Figures for the board, every first Monday.", Plugin=SAMPLE_PLUGIN,
              PrimaryProduct="alpha", TargetProduct="alpha:2016", RequiredProducts="alpha",
              ModifiedImage="images/mine16.png|images/mine32.png",
              CreatedDate="2016-02-01T10:00:00", LastModifiedDate="2016-03-01T11:30:00"),
         steps("Open", "Collect", "Board summary", "Finish")),
        ("Quarterly export.workflow",
         dict(IsTemplate="False", Id="Id_QuarterlyExport_{0a9b8c7d-6e5f-4a3b-9c2d-1e0f9a8b7c6d}",
              TemplateId="Id_DataExportTemplate", Name="Quarterly export", Plugin=SAMPLE_PLUGIN,
              Description="Inherits its products from its template.", TargetProduct="beta",
              CreatedDate="2016-04-05T12:00:00"),
         steps("Select quarter", ("Wait", {"Ms": "300"}), "Export")),
        ("Orphaned flow.workflow",
         dict(IsTemplate="False", Id="Id_OrphanedFlow_{11111111-2222-3333-4444-555555555555}",
              TemplateId="Id_RemovedTemplate", Name="Orphaned flow",
              Description="Its template is gone, so the catalogue drops it.",
              CreatedDate="2015-12-24T18:00:00"),
         steps("Nothing")),
        ("Review A.workflow",
         dict(IsTemplate="False", Id="Id_SharedReview", TemplateId="Id_PeerReviewTemplate", Name="Review A",
              Plugin=SAMPLE_PLUGIN,
              Description="Shares its id with Review B; lookups find this one first.",
              PrimaryProduct="gamma", TargetProduct="gamma:2016.1", RequiredProducts="alpha | gamma",
              CreatedDate="2016-05-01T09:00:00"),
         steps("Ask")),
        ("Review B.workflow",
         dict(IsTemplate="False", Id="Id_SharedReview", TemplateId="Id_PeerReviewTemplate", Name="Review B",
              Plugin=SAMPLE_PLUGIN,
              Description="A duplicate id, reachable only by naming its file.",
              PrimaryProduct="gamma", TargetProduct="gamma:2016.1", RequiredProducts="gamma & (beta | delta)",
              CreatedDate="2016-05-02T09:00:00"),
         steps("Ask", "Remind")),
    ]
    for name, fields, settings in users:
        write(os.path.join(USER, name), document([element(fields, None, settings)]))


if __name__ == "__main__":
    main()
