"""A page of lists that can be filtered: one file that needs nothing else."""
import base64
import hashlib
import html

from lumlog_tools.writing import DASH, text_html

LONGEST_NAME = 40
MOST_ROWS = 500

STYLE = """
:root {
    color-scheme: light dark;
    --page: #f4f6f8; --card: #ffffff; --text: #1b2129; --muted: #55606c; --line: #d5dbe2; --head: #eef1f5;
    --link: #0a58a8; --mark: #dcebfb; --error: #b3261e; --error-card: #fdf1f0; --warning: #7a4b00;
    --warning-card: #fff6e0; --calm: #1f5c8f;
}
@media screen and (prefers-color-scheme: dark) {
    :root {
        --page: #12161b; --card: #1a2027; --text: #e2e7ed; --muted: #9fabb8; --line: #333d48; --head: #232b34;
        --link: #82bbff; --mark: #20364f; --error: #ff9d93; --error-card: #2c1f21; --warning: #f3c969;
        --warning-card: #30280f; --calm: #8cc4f5;
    }
}
* { box-sizing: border-box; }
html { scroll-padding-top: 1rem; }
body {
    margin: 0; background: var(--page); color: var(--text);
    font: 15px/1.5 system-ui, "Segoe UI", Roboto, "Noto Sans", "Liberation Sans", Arial, sans-serif;
}
.frame {
    display: grid; grid-template-columns: 13.5rem minmax(0, 1fr); gap: 1.5rem; max-width: 110rem; margin: 0 auto;
    padding: 1.5rem;
}
a { color: var(--link); }
h1, h2, h3, p { margin: 0; overflow-wrap: anywhere; }
h1 { font-size: 1.7rem; line-height: 1.25; font-weight: 650; color: var(--calm); }
h2 { font-size: 1.15rem; font-weight: 650; }
h3 { font-size: 1rem; font-weight: 600; margin-top: 1.25rem; }
.error h1 { color: var(--error); }
header, section, .notice {
    background: var(--card); border: 1px solid var(--line); border-radius: 8px; padding: 1.1rem 1.3rem;
    margin-bottom: 1.25rem;
}
header { border-left: 6px solid var(--calm); }
header.error { border-left-color: var(--error); background: var(--error-card); }
.notice { border-left: 6px solid var(--warning); background: var(--warning-card); }
.notice strong { color: var(--warning); }
.file { color: var(--muted); font-size: .9rem; }
.empty, .hint, footer, .cut { color: var(--muted); }
.empty, .hint { margin-top: .4rem; }
.cut { font-style: italic; }
section dl > div { display: contents; }
dl { display: grid; grid-template-columns: max-content minmax(0, 1fr); gap: .3rem 1.25rem; margin: .9rem 0 0; }
dt { color: var(--muted); }
dd { margin: 0; overflow-wrap: anywhere; }
header dl { grid-template-columns: repeat(auto-fit, minmax(13rem, 1fr)); gap: .8rem 1.5rem; }
header dt { font-size: .82rem; }
nav { position: sticky; top: 1.5rem; align-self: start; }
nav ul { list-style: none; margin: 0; padding: 0; }
nav a {
    display: flex; justify-content: space-between; gap: .75rem; padding: .3rem .6rem; border-radius: 6px;
    color: var(--text); text-decoration: none;
}
nav a:hover { background: var(--mark); }
nav .errors .count:not(.none) { color: var(--error); font-weight: 650; }
.count { color: var(--muted); font-variant-numeric: tabular-nums; white-space: nowrap; }
.filter { margin-bottom: 1rem; }
.filter label { display: block; font-weight: 600; margin-bottom: .3rem; }
.filter input {
    width: 100%; font: inherit; color: inherit; background: var(--card); border: 1px solid var(--muted);
    border-radius: 6px; padding: .35rem .6rem;
}
.choices { display: flex; flex-wrap: wrap; gap: .4rem 1.5rem; margin-top: .8rem; }
.choices[hidden] { display: none; }
.choices select { font: inherit; color: inherit; background: var(--card); border: 1px solid var(--muted); border-radius: 6px; }
.filter output { display: block; min-height: 1.5em; color: var(--muted); font-size: .9rem; }
:focus-visible { outline: 2px solid var(--link); outline-offset: 2px; }
:target { border-color: var(--link); }
.table { overflow: auto; max-height: 75vh; margin-top: .8rem; border: 1px solid var(--line); border-radius: 6px; }
table { border-collapse: separate; border-spacing: 0; width: 100%; font-size: .87rem; }
caption { text-align: left; font-weight: 600; padding: .5rem .6rem; }
.list caption { position: absolute; clip-path: inset(50%); width: 1px; height: 1px; overflow: hidden; padding: 0; }
.many table { table-layout: fixed; min-width: 71rem; }
.many .name { white-space: normal; overflow-wrap: anywhere; }
.many col.time { width: 12rem; }
.many col.number { width: 6.2rem; }
.many col.small { width: 4.4rem; }
.many col.name { width: 7.5rem; }
/* Only what is looked at is laid out. */
.piece { content-visibility: auto; contain-intrinsic-height: auto 950rem; }
.piece .slim th { font-size: 0; line-height: 0; padding: 0; border: 0; }
.side { display: flex; flex-wrap: wrap; align-items: start; column-gap: 1.25rem; }
.short { width: fit-content; max-width: 100%; }
th, td { text-align: left; vertical-align: top; padding: .38rem .6rem; border-bottom: 1px solid var(--line); }
tbody tr:last-child > * { border-bottom: 0; }
thead { position: sticky; top: 0; z-index: 1; }
thead th { background: var(--head); font-weight: 600; white-space: nowrap; }
tbody th { font-weight: 500; }
.list tbody tr:hover > * { background: var(--mark); }
th.number, td.number { text-align: right; font-variant-numeric: tabular-nums; white-space: nowrap; }
thead .group { text-align: center; border-left: 1px solid var(--line); }
.first { border-left: 1px solid var(--line); }
.code, time { font-family: ui-monospace, "Cascadia Mono", Consolas, "Liberation Mono", Menlo, monospace; }
.code { font-size: .94em; }
td.code, .list time { white-space: nowrap; }
.list time { font-size: .94em; }
th.path { min-width: 20rem; overflow-wrap: anywhere; }
.name { white-space: nowrap; }
.long { white-space: normal; min-width: 9rem; overflow-wrap: anywhere; }
.info { min-width: 16rem; width: 40%; overflow-wrap: anywhere; white-space: pre-wrap; }
.here > * { background: var(--error-card); }
.tag {
    color: var(--error); border: 1px solid; border-radius: 4px; padding: 0 .35rem; margin-left: .5rem; font-size: .8rem;
    white-space: nowrap;
}
details { white-space: normal; }
summary { cursor: pointer; overflow-wrap: anywhere; }
summary small { color: var(--muted); white-space: nowrap; }
.whole { max-height: 60vh; overflow: auto; white-space: pre-wrap; overflow-wrap: anywhere; margin-top: .4rem; }
meter { width: 5rem; vertical-align: middle; }
footer { font-size: .85rem; overflow-wrap: anywhere; }
@media (max-width: 60rem) {
    .frame { grid-template-columns: minmax(0, 1fr); gap: 1rem; padding: .8rem; }
    nav { position: static; }
    nav ul { display: flex; flex-wrap: wrap; gap: .2rem; }
    nav a { border: 1px solid var(--line); background: var(--card); }
    header, section, .notice { padding: .9rem; }
    h1 { font-size: 1.35rem; }
}
@page { size: landscape; margin: 1cm; }
@media print {
    :root { color-scheme: light; font-size: 11px; }
    body { background: none; font-size: 1rem; }
    .frame { display: block; padding: 0; }
    nav, .choices { display: none; }
    .table, .whole { max-height: none; overflow: visible; }
    .piece { content-visibility: visible; }
    th.path, .info, .long { min-width: 0; }
    tr, dd { break-inside: avoid; }
    h2, h3, caption { break-after: avoid; }
    thead { position: static; }
}
"""

SCRIPT = """
"use strict";
const box = document.querySelector(".filter");
const field = box.querySelector("input");
const result = box.querySelector("output");
const choices = Array.from(document.querySelectorAll(".choices select"));
const sections = Array.from(document.querySelectorAll("section"), section => ({
    tables: Array.from(section.querySelectorAll("table.list"), table => ({
        table,
        rows: Array.from(table.tBodies[0].rows, row => ({ row })),
    })),
    count: document.querySelector(`nav a[href="#${section.id}"] .count`),
})).filter(section => section.tables.length > 0);

// Cells apart, so that no text is found that begins in one and ends in the next. Kept, as it takes long for many rows.
function textOf(entry)
{
    entry.text ??= Array.from(entry.row.cells, cell => cell.textContent).join("\\n").toLowerCase();
    return entry.text;
}

// What is chosen in one list of lines leaves the rows of others alone.
function isChosen(row)
{
    return choices.every(({ value, dataset }) => {
        const own = row.dataset[dataset.of];
        if (value === "" || own === undefined)
            return true;
        return dataset.kind === "most" ? Number(own) <= Number(value) : own === value;
    });
}

// Shows the rows that match, and returns how many.
function filterTable({ table, rows }, wanted)
{
    let shown = 0;
    for (const entry of rows) {
        const hidden = !isChosen(entry.row) || (wanted !== "" && !textOf(entry).includes(wanted));
        if (entry.row.hidden !== hidden)
            entry.row.hidden = hidden;
        shown += hidden ? 0 : 1;
    }
    return shown;
}

// Of a list in pieces, only those that have matches, under one head.
function filterTables(tables, wanted, filtered)
{
    let total = 0;
    for (const entry of tables) {
        const shown = filterTable(entry, wanted);
        const piece = entry.table.closest(".piece");
        if (piece) {
            piece.hidden = shown === 0;
            entry.table.tHead.classList.toggle("slim", filtered && total > 0);
        }
        total += shown;
    }
    return total;
}

function filter()
{
    const wanted = field.value.trim().toLowerCase();
    const filtered = wanted !== "" || choices.some(({ value }) => value !== "");
    let total = 0, all = 0;
    for (const { tables, count } of sections) {
        const shown = filterTables(tables, wanted, filtered);
        const rows = tables.reduce((sum, table) => sum + table.rows.length, 0);
        count.textContent = filtered ? `${separated(shown)} / ${separated(rows)}` : separated(rows);
        total += shown;
        all += rows;
    }
    result.value = filtered ? `${separated(total)} of ${separated(all)} rows match` : "";
}

function separated(number)
{
    return number.toLocaleString("en");
}

function takeFromAddress()
{
    const match = /^#find=(.*)$/.exec(location.hash);
    if (!match)
        return;
    try {
        field.value = decodeURIComponent(match[1]);
    } catch {
        field.value = match[1]; // a percent sign that encodes nothing
    }
    filter();
}

box.hidden = false;
field.addEventListener("input", filter);
for (const choice of choices) {
    choice.closest(".choices").hidden = false;
    choice.addEventListener("change", filter);
}
addEventListener("hashchange", takeFromAddress);
filter();
takeFromAddress();
"""


def cell(content, kind):
    return f'<td class="{kind}">{content}</td>'


def name_cell(text):
    """A short text, which is read best in one line, unless it is none."""
    return cell(text_html(text), "name" if len(text or "") <= LONGEST_NAME else "long")


def row(*cells, kind=None):
    opening = f'<tr class="{kind}">' if kind else "<tr>"
    return f"{opening}{''.join(cells)}</tr>\n"


def head_row(columns):
    return row(*(f'<th scope="col" class="{kind}">{title}</th>' for title, kind in columns))


def single_table(title, columns, head, rows, kind):
    cols = "".join(f'<col class="{kind}">' for _, kind in columns)
    return (f'<table class="{kind}">\n<caption>{title}</caption>\n<colgroup>{cols}</colgroup>\n'
            f"<thead>\n{head}</thead>\n<tbody>\n{''.join(rows)}</tbody>\n</table>\n")


def scrolled(title, kind, content):
    return f'<div class="{kind}" role="region" aria-label="{title}" tabindex="0">\n{content}</div>\n'


def short_table(title, columns, rows):
    """Shows its title and is not filtered."""
    return scrolled(title, "table short", single_table(title, columns, head_row(columns), rows, "short"))


def list_table(title, columns, rows, head=None):
    """Rows that can be filtered. Many are several tables, as browsers take minutes to lay out one of them all."""
    head = head or head_row(columns)
    rows = list(rows)
    if len(rows) <= MOST_ROWS:
        return scrolled(title, "table", single_table(title, columns, head, rows, "list"))
    tables = []
    for first in range(0, len(rows), MOST_ROWS):
        some = rows[first:first + MOST_ROWS]
        name = f"{title}, {first + 1:,} to {first + len(some):,}"
        tables.append(f'<div class="piece">{single_table(name, columns, head, some, "list")}</div>\n')
    return scrolled(title, "table many", "".join(tables))


def facts_html(*facts):
    """Names and what is known, without those of which nothing is."""
    pairs = "".join(f"<div><dt>{name}</dt><dd>{known}</dd></div>\n" for name, known in facts if known != DASH)
    return f"<dl>\n{pairs}</dl>\n" if pairs else ""


def side_by_side(*tables):
    return f'<div class="side">\n{"".join(tables)}</div>\n' if any(tables) else ""


def sentence(text):
    return f'<p class="empty">{text}</p>\n'


def numbered(title, bodies):
    """With a heading for each where there are several."""
    if len(bodies) == 1:
        return bodies[0]
    return "".join(f"<h3>{title} {number} of {len(bodies)}</h3>\n{body}" for number, body in enumerate(bodies, 1))


class Page:
    """The sections, and the way to them."""

    def __init__(self):
        self.links = []
        self.sections = []

    def add(self, name, title, count, body):
        kind = "count" if count else "count none"
        self.links.append(f'<li class="{name}"><a href="#{name}"><span>{title}</span> '
                          f'<span class="{kind}">{count:,}</span></a></li>\n')
        self.sections.append(f'<section id="{name}" aria-labelledby="{name}-title">\n'
                             f'<h2 id="{name}-title">{title}</h2>\n{body}</section>\n')

    def html(self, title, head, footer, fault=None):
        """All of it. title, footer and fault are texts, head is what stands in front of the sections."""
        notice = f'<p class="notice" role="note"><strong>Attention:</strong> {html.escape(fault)}</p>\n' if fault else ""
        return f"""<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="{policy()}">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<title>{html.escape(title)}</title>
<style>{STYLE}</style>
</head>
<body>
<div class="frame">
<nav aria-label="Sections">
<div class="filter" role="search" hidden>
<label for="find">Show only rows with</label>
<input id="find" type="search" autocomplete="off" spellcheck="false">
<output for="find"></output>
</div>
<ul>
{''.join(self.links)}</ul>
</nav>
<main>
{notice}{head}{''.join(self.sections)}
<footer>{html.escape(footer)}</footer>
</main>
</div>
<script>{SCRIPT}</script>
</body>
</html>
"""


def policy():
    """Nothing but this very style and script, wherever the page is opened."""
    style, script = (base64.b64encode(hashlib.sha256(text.encode()).digest()).decode() for text in (STYLE, SCRIPT))
    return (f"default-src 'none'; style-src 'sha256-{style}'; script-src 'sha256-{script}'; base-uri 'none'; "
            "form-action 'none'")
