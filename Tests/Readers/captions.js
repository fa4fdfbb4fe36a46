// How the browser reads a WebVTT file: `data` has the file's text and the cues that it must hold.

if (view !== "desktop") return;
const video = document.createElement("video");
const track = document.createElement("track");
track.default = true;
track.src = "data:text/vtt;charset=utf-8," + encodeURIComponent(data.file);
const read = new Promise((resolve, reject) => {
    track.onload = resolve;
    track.onerror = () => reject(new Error("not read as WebVTT"));
});
video.append(track);
document.body.append(video);
track.track.mode = "hidden";
await read;
const cues = Array.from(track.track.cues, (cue) => {
    const html = cue.getCueAsHTML();
    const voice = html.firstElementChild;
    return [cue.id, cue.startTime, cue.endTime, voice?.title ?? null, html.textContent, html.querySelectorAll("*").length];
});
expect("cues", cues, data.cues);
