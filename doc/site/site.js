// What the site adds to doxygen's pages: full-text search, copy buttons, and colors for consoles.
'use strict';

// Search. `searchPages` (search-data.js, written by scripts/docs) holds {url, title, text} for each
// section of each page. The index is built at the first search: it takes a fraction of a second.
let searchIndex = null;

function buildIndex() {
    return lunr(function () {
        this.ref('number');
        this.field('title', { boost: 8 });
        this.field('text');
        searchPages.forEach((page, number) => {
            this.add({ number, title: page.title, text: page.text }, { boost: page.guide ? 2 : 1 });
        });
    });
}

// Every word counts, also the beginning of one; the more of them a section has, the higher it is.
function findSections(words) {
    searchIndex = searchIndex || buildIndex();
    const terms = words.toLowerCase().split(/[^a-z0-9_]+/).filter((term) => term !== '');
    return searchIndex.query((query) => {
        for (const term of terms) {
            query.term(term, { boost: 4 });
            if (term.length > 2) {
                query.term(term, { wildcard: lunr.Query.wildcard.TRAILING, usePipeline: false });
            }
        }
    }).slice(0, 12).map((found) => searchPages[Number(found.ref)]);
}

function excerpt(text, words) {
    const terms = words.toLowerCase().split(/\s+/);
    const at = Math.max(0, ...terms.map((term) => text.toLowerCase().indexOf(term)));
    const from = Math.max(0, at - 40);
    return (from > 0 ? '\u2026' : '') + text.slice(from, from + 140);
}

function showResults(box, list) {
    const words = box.value.trim();
    const sections = words === '' ? [] : findSections(words);
    list.replaceChildren(...sections.map((section) => {
        const item = document.createElement('li');
        const link = document.createElement('a');
        link.href = section.url;
        link.textContent = section.title;
        const text = document.createElement('div');
        text.textContent = excerpt(section.text, words);
        item.append(link, text);
        return item;
    }));
    if (words !== '' && sections.length === 0) {
        const item = document.createElement('li');
        item.textContent = 'Nothing found';
        list.append(item);
    }
    list.hidden = words === '';
}

function addSearch() {
    const box = document.getElementById('search');
    const list = document.getElementById('search-results');
    box.addEventListener('input', () => showResults(box, list));
    document.addEventListener('keydown', (event) => {
        if (event.key === '/' && document.activeElement !== box) {
            event.preventDefault();
            box.focus();
        } else if (event.key === 'Escape') {
            box.value = '';
            showResults(box, list);
        }
    });
}

// A console block shows commands after "$ " or "> ", and what they print.
function colorConsole(block) {
    const lines = block.textContent.split('\n');
    if (!lines.some((line) => line.startsWith('$ '))) {
        return null;
    }
    block.replaceChildren(...lines.flatMap((line, number) => {
        const span = document.createElement('span');
        span.className = /^[$>] /.test(line) ? 'command' : 'output';
        span.textContent = line;
        return number === 0 ? [span] : ['\n', span];
    }));
    return lines.filter((line) => /^[$>] /.test(line)).map((line) => line.slice(2)).join('\n');
}

function addCopyButtons() {
    for (const block of document.querySelectorAll('pre.fragment, div.fragment')) {
        const lines = block.querySelectorAll('div.line');
        const code = lines.length > 0
            ? Array.from(lines, (line) => line.textContent).join('\n')
            : colorConsole(block) || block.textContent;
        const button = document.createElement('button');
        button.className = 'copy';
        button.type = 'button';
        button.textContent = 'Copy';
        button.addEventListener('click', async () => {
            await navigator.clipboard.writeText(code);
            button.textContent = 'Copied';
            setTimeout(() => { button.textContent = 'Copy'; }, 1500);
        });
        const frame = document.createElement('div');
        frame.className = 'code-frame';
        block.replaceWith(frame);
        frame.append(block, button);
    }
}

document.addEventListener('DOMContentLoaded', () => {
    addSearch();
    addCopyButtons();
});
