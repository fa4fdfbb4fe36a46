"use strict";

// The program's own rule for comparing texts: canonical decomposition, full case folding, no non-spacing marks.
// Hits begin and end between characters of the text.

const nonSpacingMarks = /\p{Mn}/gu;

// Texts of these have one character per unit, and all but ß and ŉ fold to one unit.
const ownCharacters = /^[\0-\x0c\x0e-\u02ff\u2010-\u2027\u20a0-\u20bf]*$/;

const graphemes = "Segmenter" in Intl ? new Intl.Segmenter("de", { granularity: "grapheme" }) : null;

// Up and down again is case folding but for the dotless i, which folds to itself.
function foldedScalar(scalar) {
    return scalar === "\u0131" ? scalar : scalar.toLowerCase().toUpperCase().toLowerCase();
}

function folded(text) {
    return text.normalize("NFD").replace(/[^\0-\x7f]/gu, foldedScalar).toLowerCase().replace(nonSpacingMarks, "");
}

function characters(text) {
    return graphemes ? Array.from(graphemes.segment(text), (part) => part.segment) : Array.from(text);
}

class SearchableText {
    constructor(text) {
        this.text = text;
        this.folded = folded(text);
        this.isOneToOne = this.folded.length === text.length && ownCharacters.test(text);
        this.boundaries = null;
    }

    contains(needle) {
        return needle !== "" && this.folded.includes(needle) && (this.isOneToOne || this.hits(needle).length > 0);
    }

    // The occurrences of a folded needle from left to right, as pairs of offsets in the text.
    hits(needle) {
        const found = [];
        let at = needle === "" ? -1 : this.folded.indexOf(needle);
        while (at >= 0) {
            const start = this.start(at);
            const end = this.end(at + needle.length);
            const isHit = start !== undefined && end !== undefined;
            if (isHit) found.push([start, end]);
            at = this.folded.indexOf(needle, at + (isHit ? needle.length : 1));
        }
        return found;
    }

    start(at) {
        return this.isOneToOne ? at : this.mapped().starts.get(at);
    }

    end(at) {
        return this.isOneToOne ? at : this.mapped().ends.get(at);
    }

    // From offsets in the folded text to where characters begin and end; marks alone begin no hit and end none.
    mapped() {
        if (this.boundaries) return this.boundaries;
        const starts = new Map();
        const ends = new Map();
        let at = 0;
        let offset = 0;
        const endHere = () => ends.has(at) || ends.set(at, offset);
        for (const character of characters(this.text)) {
            endHere();
            starts.set(at, offset);
            at += folded(character).length;
            offset += character.length;
        }
        endHere();
        this.boundaries = { starts, ends };
        return this.boundaries;
    }
}

// The distinct words of a query, folded.
function searchTerms(query) {
    return Array.from(new Set(query.split(/\p{White_Space}+/u).filter(Boolean)), folded);
}

function matchesAll(searchable, terms) {
    return terms.every((term) => searchable.contains(term));
}

// The stretches to highlight, with those that overlap or touch made one.
function mergedHits(searchable, terms) {
    const merged = [];
    const hits = terms.flatMap((term) => searchable.hits(term)).sort((a, b) => a[0] - b[0] || a[1] - b[1]);
    for (const [start, end] of hits) {
        const last = merged[merged.length - 1];
        if (last && start <= last[1]) {
            last[1] = Math.max(last[1], end);
        } else {
            merged.push([start, end]);
        }
    }
    return merged;
}
