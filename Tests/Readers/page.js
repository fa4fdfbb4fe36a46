// What the exported page shows and does. `data` has the texts of the visible transcript.

const all = (selector) => Array.from(document.querySelectorAll(selector));
const isShown = (element) => element.checkVisibility();
const shownSegments = () => all(".seg").filter(isShown).map((segment) => segment.textContent);
const settled = () => new Promise((resolve) => setTimeout(resolve, 20));

async function type(text) {
    query.value = text;
    query.dispatchEvent(new InputEvent("input", { bubbles: true }));
    await settled();
}

function luminance(color) {
    const channels = color.match(/[\d.]+/g).slice(0, 3).map((value) => {
        const part = value / 255;
        return part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4;
    });
    return 0.2126 * channels[0] + 0.7152 * channels[1] + 0.0722 * channels[2];
}

function contrast(element) {
    const [high, low] = [getComputedStyle(element).color, getComputedStyle(document.documentElement).backgroundColor]
        .map(luminance).sort((a, b) => b - a);
    return (high + 0.05) / (low + 0.05);
}

// Everything stays text.
expect("injected", [window.injected, all("main img, main b, main i, body style, main script").length], [undefined, 0]);
expect("title", document.title, data.title);
expect("heading", document.querySelector("h1").textContent, data.title);
expect("texts", shownSegments(), data.texts);
expect("names", all(".block h3").map((name) => name.textContent), data.names);

// Colours: the layout's assignment, each of its own and readable.
expect("colours", all(".block").map((block) => block.classList[1]), data.colors);
const seen = new Set(all(".block h3").map((name) => getComputedStyle(name).color));
expect("distinct colours", seen.size, new Set(data.colors).size);
for (const element of all(".block h3, .at, .quiet, .facts dt, .evidence blockquote, .evidence a, body")) {
    if (contrast(element) < 4.5) expect("contrast of " + element.className, contrast(element), "at least 4.5");
}
expect("overflow", document.documentElement.scrollWidth <= document.documentElement.clientWidth, true);
expect("tools", isShown(document.querySelector(".tools")), view !== "print");
expect("paper", luminance(getComputedStyle(document.documentElement).backgroundColor) > 0.5, view !== "phone");
if (view === "print") return;

// Each cited wording stands under its point and leads to its segment.
expect("evidence", all(".evidence").map((item) => item.querySelector("blockquote").textContent), data.quotes);
const link = document.querySelector('.evidence a[href="#s' + data.jump + '"]');
await type("gibt es nicht");
expect("nothing found", [shownSegments(), count.textContent], [[], "Nichts gefunden"]);
link.click();
await settled();
const target = document.getElementById("s" + data.jump);
const box = target.getBoundingClientRect();
expect("jump", [location.hash, target.matches(":target"), query.value], ["#s" + data.jump, true, ""]);
expect("in sight", box.top >= document.querySelector(".tools").offsetHeight && box.bottom <= innerHeight, true);
expect("all again", shownSegments(), data.texts);

// Times: one form at a time, switched by the button.
// A block that the browser has not come to show yet has no inner text.
all(".block").forEach((block) => { block.style.contentVisibility = "visible"; });
const times = () => all(".block .at").map((time) => time.innerText.trim());
expect("elapsed", times().slice(0, 2), data.elapsed);
document.getElementById("times").click();
expect("clock", times().slice(0, 2), data.clock);

// The search filters and highlights by the program's own rules.
for (const { query: words, found, marks } of data.searches) {
    await type(words);
    expect("found " + words, shownSegments(), found);
    expect("marked " + words, all("mark").map((hit) => hit.textContent), marks);
    expect("blocks of " + words, all(".block").filter(isShown).every((block) => block.querySelector("mark")), true);
}
await type("");
expect("after the search", [shownSegments(), all("mark").length], [data.texts, 0]);

// The page's folding is the program's, scalar by scalar. Cherokee has the other case for its folded form.
const cherokee = /\p{Script=Cherokee}/u;
const wrong = [];
const check = (code, expected) => {
    const scalar = String.fromCodePoint(code);
    if (!cherokee.test(scalar) && folded(scalar) !== expected) wrong.push(code.toString(16));
};
for (const [code, expected] of Object.entries(data.folded)) check(Number(code), expected);
for (const [first, last] of data.unchanged) {
    for (let code = first; code <= last; code += 1) check(code, String.fromCodePoint(code));
}
expect("folding", wrong, []);
