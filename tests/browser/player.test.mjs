// The player in the page: the browser's own audio, and the Flash movie where that cannot play.
import assert from "node:assert/strict";

import { FLASH, fallsSilent, sounds } from "./support/flash.mjs";
import { site } from "./support/site.mjs";
import { until } from "./support/until.mjs";

const PLAY = "/images/play.png";
const STOP = "/images/stop.png";
const TUNEIN = /\/sbin\/tunein\.pls\?mnt=/;

// Remembers each audio element that a page makes.
const rememberAudio = () => {
  window.made = [];
  const Original = window.Audio;
  window.Audio = function (...address) {
    const element = new Original(...address);
    window.made.push(element);
    return element;
  };
};

const playNothing = () => { HTMLMediaElement.prototype.canPlayType = () => ""; };

const flashOnly = `(${playNothing})();\n${FLASH}`;

const link = (page, address) => page.locator(`a[id="${address}"]`);
const image = (page, address) => link(page, address).locator("img").getAttribute("src");
const shows = (page, address, picture) =>
  until(`${address} shows ${picture}`, async () => (await image(page, address)) === picture);
const source = (page) => page.evaluate("audioElement.src");
const isPlaying = (page) => until("it plays", () => page.evaluate("!!audioElement && audioElement.currentTime > 0.2"));

// An address that would end a text in a script, an attribute or an address, if it could.
const HOSTILE = `/it's "100%41" <b>?#`;

site("the player", { mounts: ["/demo", HOSTILE] }, async (here) => {
  await here.demoStation();
  (await here.source(2)).changing();
}, (here) => {
  here.it("plays a stream by the browser's own audio, and stops it", async (visitor) => {
    const page = await visitor.open("/", { script: rememberAudio });
    await link(page, "/demo").click();
    await shows(page, "/demo", STOP);
    await isPlaying(page);
    assert.equal(await source(page), `${here.server.origin}/demo`);
    assert.equal(await link(page, "/demo").getAttribute("aria-label"), "Stop");
    await link(page, "/demo").click();
    await shows(page, "/demo", PLAY);
    assert.equal(await source(page), "about:blank");
    assert.equal(await link(page, "/demo").getAttribute("aria-label"), null);
    visitor.tolerate(/about:blank/); // what silences the element is no sound, as the browser may remark
  });

  here.it("is worked with the keyboard", async (visitor) => {
    const page = await visitor.open("/");
    await link(page, "/demo").focus();
    await page.keyboard.press("Enter");
    await shows(page, "/demo", STOP);
    await isPlaying(page);
  });

  here.it("plays one stream at a time, with one element", async (visitor) => {
    const page = await visitor.open("/", { script: rememberAudio });
    await link(page, "/demo").click();
    await isPlaying(page);
    await page.evaluate((address) => document.getElementById(address).click(), HOSTILE);
    await until("the other shows that it plays", () => page.evaluate("playingMnt !== '/demo'"));
    assert.equal(await page.evaluate("playingMnt"), HOSTILE);
    assert.equal(await image(page, "/demo"), PLAY);
    assert.equal(await page.evaluate("currentPlayCtrl.querySelector('img').getAttribute('src')"), STOP);
    assert.equal(await page.evaluate("window.made.length"), 1);
    assert.equal(decodeURIComponent(await source(page)), here.server.origin + HOSTILE);
    await isPlaying(page);
  });

  here.it("goes on playing while the table changes", async (visitor) => {
    const page = await visitor.open("/");
    await link(page, "/demo").click();
    await isPlaying(page);
    await page.evaluate("document.getElementById('/demo').innerHTML = 'anew', loadPlayLinks()");
    assert.equal(await image(page, "/demo"), STOP);
    assert.equal(await page.evaluate("audioElement.paused"), false);
  });

  here.it("is counted, and goes on playing while the table follows", async (visitor) => {
    const page = await visitor.open("/");
    const count = page.locator("#internalStation1 .receiversCount");
    await link(page, "/demo").click();
    await isPlaying(page);
    await until("the page counts itself", async () => (await count.innerText()) === "1 (1 unique)");
    assert.equal(await image(page, "/demo"), STOP);
  });

  here.it("plays in the administrator's table", async (visitor) => {
    const page = await visitor.open("/admin", { as: "admin" });
    await link(page, "/demo").click();
    await shows(page, "/demo", STOP);
    await isPlaying(page);
  });

  here.it("leaves what the browser cannot play to a playlist", async (visitor) => {
    const page = await visitor.open("/", { script: playNothing });
    const address = await link(page, "/demo").getAttribute("href");
    assert.match(address, TUNEIN);
    assert.equal(await (await page.request.get(address)).text(),
      `#EXTM3U\r\n#EXTINF:-1,Quillwave Demo\r\n${here.server.origin}/demo\r\n`);
    await page.evaluate("play('/demo', 'audio/mpeg')");
    assert.equal(await page.evaluate("playingMnt"), null);
    assert.equal(await image(page, "/demo"), PLAY);
  });

  here.it("is not in a page without it", async (visitor) => {
    const page = await visitor.open("/?lp=y");
    assert.match(await link(page, "/demo").getAttribute("href"), TUNEIN);
    assert.equal(await page.evaluate("typeof play"), "undefined");
    assert.equal(await page.locator("#playfall").count(), 0);
  });

  here.it("plays a stream by the Flash movie where the browser cannot, and stops it", async (visitor) => {
    const page = await visitor.open("/", { script: flashOnly });
    await until("the movie can be called",
      () => page.evaluate("typeof document.getElementById('quillPlayer').jQuillPlay === 'function'"));
    const asked = page.waitForRequest((request) => request.url().includes("flv"));
    await link(page, "/demo").click();
    assert.equal((await asked).url(), `${here.server.origin}/demo?flv=1`);
    await shows(page, "/demo", STOP);
    assert.deepEqual(await page.evaluate("[playingMnt, flashPlayed, audioElement]"), ["/demo", true, null]);
    await sounds(page);
    await link(page, "/demo").click();
    await shows(page, "/demo", PLAY);
    await fallsSilent(page);
  });
});
