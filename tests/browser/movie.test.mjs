// The Flash movie, run by a player that needs no plug-in.
import assert from "node:assert/strict";

import { FLASH, fallsSilent, sounds } from "./support/flash.mjs";
import { site } from "./support/site.mjs";
import { until } from "./support/until.mjs";

const PAGE = `<!DOCTYPE html><title>Movie</title><link rel="icon" href="data:,"><button>Begin</button>
<script>
  const movie = window.RufflePlayer.newest().createPlayer();
  document.body.appendChild(movie);
  document.querySelector("button").onclick = () => movie.ruffle().load("/flash/quillwave.swf");
</script>`;

// A window in which the movie is ready to be called. A click lets it sound, as browsers ask for.
async function openMovie(visitor) {
  const page = await visitor.open("/movie.html", { pages: { "/movie.html": PAGE }, script: FLASH });
  const asked = [];
  page.on("request", (request) => asked.push(request.url()));
  await page.click("button");
  await until("the movie can be called", () => page.evaluate("typeof movie.jQuillPlay === 'function'"));
  const streams = () => asked.filter((url) => url.includes("flv")).map((url) => new URL(url).pathname);
  return { page, streams };
}

site("the Flash movie", { mounts: ["/demo", "/other one"] }, async (here) => {
  await here.demoStation();
  await here.source(2);
}, (here) => {
  here.it("is for version 10.3 of the Flash player, and as long as its header says", async (visitor) => {
    const { page } = await openMovie(visitor);
    const { swfVersion, uncompressedLength, isActionScript3 } = await page.evaluate("movie.ruffle().metadata");
    assert.deepEqual([swfVersion, uncompressedLength, isActionScript3], [12, 153050, true]);
  });

  here.it("plays a stream until it is told to stop", async (visitor) => {
    const { page, streams } = await openMovie(visitor);
    await fallsSilent(page);
    assert.equal(await page.evaluate("window.sounds"), 0);
    await page.evaluate("movie.jQuillPlay('/demo')");
    await sounds(page);
    await page.evaluate("movie.jQuillStop()");
    await fallsSilent(page);
    assert.deepEqual(streams(), ["/demo"]);
  });

  here.it("plays another stream, and the first again", async (visitor) => {
    const { page, streams } = await openMovie(visitor);
    await page.evaluate("movie.jQuillPlay('/demo')");
    await sounds(page);
    await page.evaluate("movie.jQuillPlay('/' + encodeURIComponent('other one'))");
    await page.evaluate("movie.jQuillStop(), movie.jQuillStop()");
    await fallsSilent(page);
    await page.evaluate("window.sounds = 0, movie.jQuillPlay('/demo')");
    await sounds(page);
    assert.deepEqual(streams(), ["/demo", "/other%20one", "/demo"]);
  });

  here.it("asks no other server for a stream", async (visitor) => {
    const { page, streams } = await openMovie(visitor);
    for (const uri of ["//elsewhere.example/demo", "http://elsewhere.example/demo", "/\\elsewhere.example/demo",
      "/\t/elsewhere.example/demo", "demo", "", null])
      await page.evaluate(`movie.jQuillPlay(${JSON.stringify(uri)})`);
    await page.evaluate("movie.jQuillPlay('/demo')");
    await sounds(page);
    assert.deepEqual(streams(), ["/demo"]);
  });
});
