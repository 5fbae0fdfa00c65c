// The Flash movie, run by a player that needs no plug-in.
import assert from "node:assert/strict";

import { site } from "./support/site.mjs";
import { pause, until } from "./support/until.mjs";

const SETTINGS = { publicPath: "/ruffle/", autoplay: "on", unmuteOverlay: "hidden", preferredRenderer: "canvas",
  allowScriptAccess: true, logLevel: "error" };
const PAGE = `<!DOCTYPE html><title>Movie</title><link rel="icon" href="data:,"><button>Begin</button>
<script>window.RufflePlayer = { config: ${JSON.stringify(SETTINGS)} };</script>
<script src="/ruffle/ruffle.js"></script>
<script>
  const movie = window.RufflePlayer.newest().createPlayer();
  document.body.appendChild(movie);
  document.querySelector("button").onclick = () => movie.ruffle().load("/flash/quillwave.swf");
</script>`;

// Counts the pieces of sound that are not silence.
function countSounds() {
  window.sounds = 0;
  const start = AudioBufferSourceNode.prototype.start;
  AudioBufferSourceNode.prototype.start = function (...when) {
    const samples = this.buffer ? this.buffer.getChannelData(0) : [];
    if (samples.some((sample) => Math.abs(sample) > 0.001)) window.sounds++;
    return start.apply(this, when);
  };
}

// A window in which the movie is ready to be called. A click lets it sound, as browsers ask for.
async function openMovie(visitor) {
  const page = await visitor.open("/movie.html", { pages: { "/movie.html": PAGE }, script: countSounds });
  const asked = [];
  page.on("request", (request) => asked.push(request.url()));
  await page.click("button");
  await until("the movie can be called", () => page.evaluate("typeof movie.jQuillPlay === 'function'"));
  const call = (words) => page.evaluate(words);
  const streams = () => asked.filter((url) => url.includes("flv")).map((url) => new URL(url).pathname);
  return { call, streams };
}

const sounds = (call) => until("there is sound", () => call("window.sounds > 3"));

async function fallsSilent(call) {
  await until("there is no new sound", async () => {
    const before = await call("window.sounds");
    await pause(1000);
    return before === await call("window.sounds");
  });
}

site("the Flash movie", { mounts: ["/demo", "/other one"] }, async (here) => {
  await here.demoStation();
  await here.source(2);
}, (here) => {
  here.it("is for version 10.3 of the Flash player, and as long as its header says", async (visitor) => {
    const { call } = await openMovie(visitor);
    const { swfVersion, uncompressedLength, isActionScript3 } = await call("movie.ruffle().metadata");
    assert.deepEqual([swfVersion, uncompressedLength, isActionScript3], [12, 153050, true]);
  });

  here.it("plays a stream until it is told to stop", async (visitor) => {
    const { call, streams } = await openMovie(visitor);
    await fallsSilent(call);
    assert.equal(await call("window.sounds"), 0);
    await call("movie.jQuillPlay('/demo')");
    await sounds(call);
    await call("movie.jQuillStop()");
    await fallsSilent(call);
    assert.deepEqual(streams(), ["/demo"]);
  });

  here.it("plays another stream, and the first again", async (visitor) => {
    const { call, streams } = await openMovie(visitor);
    await call("movie.jQuillPlay('/demo')");
    await sounds(call);
    await call("movie.jQuillPlay('/' + encodeURIComponent('other one'))");
    await call("movie.jQuillStop(), movie.jQuillStop()");
    await fallsSilent(call);
    await call("window.sounds = 0, movie.jQuillPlay('/demo')");
    await sounds(call);
    assert.deepEqual(streams(), ["/demo", "/other%20one", "/demo"]);
  });

  here.it("asks no other server for a stream", async (visitor) => {
    const { call, streams } = await openMovie(visitor);
    for (const uri of ["//elsewhere.example/demo", "http://elsewhere.example/demo", "/\\elsewhere.example/demo",
      "/\t/elsewhere.example/demo", "demo", "", null])
      await call(`movie.jQuillPlay(${JSON.stringify(uri)})`);
    await call("movie.jQuillPlay('/demo')");
    await sounds(call);
    assert.deepEqual(streams(), ["/demo"]);
  });
});
