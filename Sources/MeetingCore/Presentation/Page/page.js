// Marking is done in slices, so that typing never waits for the thousands of hits of a first letter.
const sliceSize = 400;

const query = document.getElementById("query");
let blocks = null;
let marked = [];
let searchNumber = 0;

// The transcript as blocks of paragraphs of segments, read from the page at the first search.
function readBlocks() {
    return Array.from(document.querySelectorAll(".block"), (block) => ({
        element: block,
        paragraphs: Array.from(block.querySelectorAll("p"), (paragraph) => ({
            element: paragraph,
            segments: Array.from(paragraph.querySelectorAll(".seg"), (segment) => ({
                element: segment,
                searchable: new SearchableText(segment.textContent),
            })),
        })),
    }));
}

function show(item, visible) {
    item.element.hidden = !visible;
    return visible;
}

// Shows what contains a matching segment, hides the rest and returns the matching segments.
function filter(terms) {
    const found = [];
    for (const block of blocks) {
        let blockVisible = false;
        for (const paragraph of block.paragraphs) {
            const before = found.length;
            for (const segment of paragraph.segments) {
                if (show(segment, matchesAll(segment.searchable, terms))) found.push(segment);
            }
            blockVisible = show(paragraph, found.length > before) || blockVisible;
        }
        show(block, blockVisible);
    }
    return found;
}

function unmark() {
    for (const segment of marked) segment.element.textContent = segment.searchable.text;
    marked = [];
}

function mark(segment, terms) {
    const text = segment.searchable.text;
    const parts = [];
    let done = 0;
    for (const [start, end] of mergedHits(segment.searchable, terms)) {
        const hit = document.createElement("mark");
        hit.textContent = text.slice(start, end);
        parts.push(text.slice(done, start), hit);
        done = end;
    }
    segment.element.replaceChildren(...parts, text.slice(done));
    marked.push(segment);
}

function markFrom(found, first, terms, number) {
    if (number !== searchNumber) return;
    for (const segment of found.slice(first, first + sliceSize)) mark(segment, terms);
    if (first + sliceSize < found.length) setTimeout(markFrom, 0, found, first + sliceSize, terms, number);
}

function describe(count) {
    if (count === 0) return "Nichts gefunden";
    return count === 1 ? "1 Abschnitt" : count.toLocaleString("de-DE") + " Abschnitte";
}

function search() {
    blocks ??= readBlocks();
    const terms = searchTerms(query.value);
    const isSearching = terms.length > 0;
    unmark();
    searchNumber += 1;
    const found = filter(terms);
    document.body.classList.toggle("searching", isSearching);
    document.getElementById("count").textContent = isSearching ? describe(found.length) : "";
    if (isSearching) markFrom(found, 0, terms, searchNumber);
}

function endSearch() {
    if (query.value === "") return;
    query.value = "";
    search();
}

// A jump leads to the segment among its neighbours, which a search may have hidden.
function followLink(event) {
    if (event.target.closest('a[href^="#s"]')) endSearch();
}

function switchTimes() {
    const root = document.documentElement;
    root.dataset.times = root.dataset.times === "clock" ? "elapsed" : "clock";
}

if (query) {
    query.closest(".tools").hidden = false;
    query.addEventListener("input", search);
    document.addEventListener("click", followLink);
    document.getElementById("times")?.addEventListener("click", switchTimes);
    // A browser that restores the field after going back has not told us.
    if (query.value !== "") search();
}
