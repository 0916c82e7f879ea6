#!/usr/bin/env python3
"""Writes samples/sample.xlsx, the workbook that the main job paints, and
converts it to samples/sample.xls with LibreOffice when that is installed.

The workbook is written by hand here (standard library only) so that the
project owns its sample: two sheets with fonts, fills, number formats,
formulas, a merged title, frozen panes, a hidden row and overflowing text.
"""
import os
import shutil
import subprocess
import sys
import tempfile
import zipfile
from xml.sax.saxutils import escape

HEADER = '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>\n'
MAIN = "http://schemas.openxmlformats.org/spreadsheetml/2006/main"
REL = "http://schemas.openxmlformats.org/officeDocument/2006/relationships"

CONTENT_TYPES = HEADER + """<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">
<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>
<Default Extension="xml" ContentType="application/xml"/>
<Override PartName="/xl/workbook.xml" ContentType="application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml"/>
<Override PartName="/xl/worksheets/sheet1.xml" ContentType="application/vnd.openxmlformats-officedocument.spreadsheetml.worksheet+xml"/>
<Override PartName="/xl/worksheets/sheet2.xml" ContentType="application/vnd.openxmlformats-officedocument.spreadsheetml.worksheet+xml"/>
<Override PartName="/xl/styles.xml" ContentType="application/vnd.openxmlformats-officedocument.spreadsheetml.styles+xml"/>
<Override PartName="/docProps/core.xml" ContentType="application/vnd.openxmlformats-package.core-properties+xml"/>
</Types>"""

ROOT_RELS = HEADER + """<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">
<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/officeDocument" Target="xl/workbook.xml"/>
<Relationship Id="rId2" Type="http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties" Target="docProps/core.xml"/>
</Relationships>"""

CORE = HEADER + """<cp:coreProperties xmlns:cp="http://schemas.openxmlformats.org/package/2006/metadata/core-properties" xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns:dcterms="http://purl.org/dc/terms/" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance">
<dc:title>Tabulon sample</dc:title><dc:creator>Tabulon</dc:creator>
<dc:description>The workbook of the main job.</dc:description>
<dcterms:created xsi:type="dcterms:W3CDTF">2026-11-23T09:00:00Z</dcterms:created>
<dcterms:modified xsi:type="dcterms:W3CDTF">2026-11-23T09:00:00Z</dcterms:modified>
</cp:coreProperties>"""

WORKBOOK = HEADER + f"""<workbook xmlns="{MAIN}" xmlns:r="{REL}">
<bookViews><workbookView activeTab="0"/></bookViews>
<sheets><sheet name="Budget" sheetId="1" r:id="rId1"/><sheet name="Notes" sheetId="2" r:id="rId2"/></sheets>
</workbook>"""

WORKBOOK_RELS = HEADER + """<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">
<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/worksheet" Target="worksheets/sheet1.xml"/>
<Relationship Id="rId2" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/worksheet" Target="worksheets/sheet2.xml"/>
<Relationship Id="rId3" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/styles" Target="styles.xml"/>
</Relationships>"""

# Cell styles (index: what it is):
# 0 plain; 1 title; 2 heading; 3 money; 4 money bold with fill; 5 percent;
# 6 date; 7 serif; 8 mono; 9 red negatives; 10 text right-aligned; 11 centred
STYLES = HEADER + f"""<styleSheet xmlns="{MAIN}">
<numFmts count="3">
<numFmt numFmtId="164" formatCode="#,##0.00"/>
<numFmt numFmtId="165" formatCode="yyyy\\-mm\\-dd"/>
<numFmt numFmtId="166" formatCode="#,##0;[Red]\\-#,##0"/>
</numFmts>
<fonts count="6">
<font><sz val="10"/><name val="Arial"/><family val="2"/></font>
<font><b/><sz val="14"/><color rgb="FF1F3864"/><name val="Arial"/><family val="2"/></font>
<font><b/><sz val="10"/><name val="Arial"/><family val="2"/></font>
<font><i/><sz val="11"/><name val="Times New Roman"/><family val="1"/></font>
<font><sz val="10"/><name val="Courier New"/><family val="3"/></font>
<font><u/><sz val="10"/><color rgb="FF0000CC"/><name val="Arial"/><family val="2"/></font>
</fonts>
<fills count="5">
<fill><patternFill patternType="none"/></fill>
<fill><patternFill patternType="gray125"/></fill>
<fill><patternFill patternType="solid"><fgColor rgb="FFDDEBF7"/><bgColor indexed="64"/></patternFill></fill>
<fill><patternFill patternType="solid"><fgColor rgb="FFD9D9D9"/><bgColor indexed="64"/></patternFill></fill>
<fill><patternFill patternType="solid"><fgColor rgb="FFFFF2CC"/><bgColor indexed="64"/></patternFill></fill>
</fills>
<borders count="1"><border><left/><right/><top/><bottom/><diagonal/></border></borders>
<cellStyleXfs count="1"><xf numFmtId="0" fontId="0" fillId="0" borderId="0"/></cellStyleXfs>
<cellXfs count="12">
<xf numFmtId="0" fontId="0" fillId="0" borderId="0" xfId="0"/>
<xf numFmtId="0" fontId="1" fillId="2" borderId="0" xfId="0" applyFont="1" applyFill="1" applyAlignment="1"><alignment horizontal="center"/></xf>
<xf numFmtId="0" fontId="2" fillId="3" borderId="0" xfId="0" applyFont="1" applyFill="1" applyAlignment="1"><alignment horizontal="center"/></xf>
<xf numFmtId="164" fontId="0" fillId="0" borderId="0" xfId="0" applyNumberFormat="1"/>
<xf numFmtId="164" fontId="2" fillId="4" borderId="0" xfId="0" applyNumberFormat="1" applyFont="1" applyFill="1"/>
<xf numFmtId="10" fontId="0" fillId="0" borderId="0" xfId="0" applyNumberFormat="1"/>
<xf numFmtId="165" fontId="0" fillId="0" borderId="0" xfId="0" applyNumberFormat="1"/>
<xf numFmtId="0" fontId="3" fillId="0" borderId="0" xfId="0" applyFont="1"/>
<xf numFmtId="0" fontId="4" fillId="0" borderId="0" xfId="0" applyFont="1"/>
<xf numFmtId="166" fontId="0" fillId="0" borderId="0" xfId="0" applyNumberFormat="1"/>
<xf numFmtId="0" fontId="5" fillId="0" borderId="0" xfId="0" applyFont="1" applyAlignment="1"><alignment horizontal="right"/></xf>
<xf numFmtId="0" fontId="2" fillId="0" borderId="0" xfId="0" applyFont="1" applyAlignment="1"><alignment horizontal="center"/></xf>
</cellXfs>
<cellStyles count="1"><cellStyle name="Normal" xfId="0" builtinId="0"/></cellStyles>
</styleSheet>"""


def col_name(col):
    name = ""
    col += 1
    while col:
        col, rem = divmod(col - 1, 26)
        name = chr(65 + rem) + name
    return name


def cell(ref, value, style=0):
    """One <c> element: a number, a text (inline), or a formula ('=...')."""
    s = f' s="{style}"' if style else ""
    if isinstance(value, str) and value.startswith("="):
        return f'<c r="{ref}"{s}><f>{escape(value[1:])}</f></c>'
    if isinstance(value, str):
        return f'<c r="{ref}"{s} t="inlineStr"><is><t xml:space="preserve">{escape(value)}</t></is></c>'
    return f'<c r="{ref}"{s}><v>{value!r}</v></c>'


def sheet(rows, extra_before="", extra_after="", cols="", row_attrs=None):
    row_attrs = row_attrs or {}
    body = []
    for r, cells in rows:
        attrs = row_attrs.get(r, "")
        body.append(f'<row r="{r}"{attrs}>' + "".join(cells) + "</row>")
    return (HEADER + f'<worksheet xmlns="{MAIN}" xmlns:r="{REL}">' + extra_before +
            cols + "<sheetData>" + "".join(body) + "</sheetData>" + extra_after +
            "</worksheet>")


def budget_sheet():
    items = [("Rent", [1200, 1200, 1250, 1250]),
             ("Salaries", [8400.5, 8400.5, 8650, 8900.25]),
             ("Travel", [310.2, 95, 1240.75, 460]),
             ("Equipment", [2500, 0, 0, 1899.99]),
             ("Training", [0, 450, 450, 0]),
             ("Marketing", [780, 920.4, 1015, 1260.6])]
    rows = [(1, [cell("A1", "Quarterly budget 2026", 1)] +
             [cell(f"{col_name(c)}1", "", 1) for c in range(1, 6)]),
            (2, [cell(f"{col_name(c)}2", t, 2) for c, t in
                 enumerate(["Item", "Q1", "Q2", "Q3", "Q4", "Total"])])]
    for i, (name, values) in enumerate(items):
        r = 3 + i
        cells = [cell(f"A{r}", name)]
        cells += [cell(f"{col_name(1 + q)}{r}", v, 3) for q, v in enumerate(values)]
        cells.append(cell(f"F{r}", f"=SUM(B{r}:E{r})", 4))
        rows.append((r, cells))
    last = 2 + len(items)
    total = last + 1
    rows.append((total, [cell(f"A{total}", "Total", 2)] +
                 [cell(f"{col_name(c)}{total}", f"=SUM({col_name(c)}3:{col_name(c)}{last})", 4)
                  for c in range(1, 6)]))
    rows.append((total + 1, [cell(f"A{total + 1}", "hidden working row"),
                             cell(f"B{total + 1}", 42)]))
    rows.append((total + 2, [cell(f"A{total + 2}", "Growth Q4/Q1"),
                             cell(f"B{total + 2}", f"=E{total}/B{total}-1", 5)]))
    rows.append((total + 3, [cell(f"A{total + 3}", "Report date"),
                             cell(f"B{total + 3}", 46349, 6)]))
    rows.append((total + 4, [cell(f"A{total + 4}", "Check"),
                             cell(f"B{total + 4}", f"=IF(F{total}>0,\"balanced\",\"empty\")", 11)]))
    cols = ('<cols><col min="1" max="1" width="16.7" customWidth="1"/>'
            '<col min="2" max="6" width="12.7" customWidth="1"/></cols>')
    views = ('<sheetViews><sheetView tabSelected="1" workbookViewId="0">'
             '<pane xSplit="1" ySplit="2" topLeftCell="B3" activePane="bottomRight" state="frozen"/>'
             '<selection pane="bottomRight" activeCell="B3" sqref="B3"/></sheetView></sheetViews>')
    merge = '<mergeCells count="1"><mergeCell ref="A1:F1"/></mergeCells>'
    return sheet(rows, extra_before=views, cols=cols, extra_after=merge,
                 row_attrs={1: ' ht="21" customHeight="1"', total + 1: ' hidden="1"'})


def notes_sheet():
    rows = [(1, [cell("A1", "This note is a long line of text that runs over the empty cells to its right.")]),
            (2, [cell("A2", "Serif italic", 7), cell("B2", 3.14159, 7)]),
            (3, [cell("A3", "Mono text", 8), cell("B3", "0042", 8)]),
            (4, [cell("A4", "Red negatives"), cell("B4", -1234.5, 9), cell("C4", 98765, 9)]),
            (5, [cell("A5", "Right aligned link", 10)]),
            (6, [cell("A6", "Logical"), cell("B6", "=B4<0"), cell("C6", "=1/0")]),
            (8, [cell("C8", "Centred", 11), cell("E8", 0.000123), cell("F8", 123456789012)])]
    cols = '<cols><col min="1" max="1" width="14" customWidth="1"/><col min="4" max="4" hidden="1" width="9"/></cols>'
    return sheet(rows, cols=cols)


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    out_dir = os.path.join(root, "samples")
    os.makedirs(out_dir, exist_ok=True)
    xlsx = os.path.join(out_dir, "sample.xlsx")
    parts = {
        "[Content_Types].xml": CONTENT_TYPES,
        "_rels/.rels": ROOT_RELS,
        "docProps/core.xml": CORE,
        "xl/workbook.xml": WORKBOOK,
        "xl/_rels/workbook.xml.rels": WORKBOOK_RELS,
        "xl/styles.xml": STYLES,
        "xl/worksheets/sheet1.xml": budget_sheet(),
        "xl/worksheets/sheet2.xml": notes_sheet(),
    }
    with zipfile.ZipFile(xlsx, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, text in parts.items():
            info = zipfile.ZipInfo(name, date_time=(2026, 11, 23, 9, 0, 0))
            info.compress_type = zipfile.ZIP_DEFLATED
            archive.writestr(info, text)
    soffice = shutil.which("soffice")
    if not soffice:
        print("LibreOffice not found: samples/sample.xls left as it is", file=sys.stderr)
        return
    with tempfile.TemporaryDirectory() as profile:
        subprocess.run([soffice, f"-env:UserInstallation=file://{profile}", "--headless",
                        "--convert-to", "xls:MS Excel 97", "--outdir", out_dir, xlsx],
                       check=True, stdout=subprocess.DEVNULL)


if __name__ == "__main__":
    main()
