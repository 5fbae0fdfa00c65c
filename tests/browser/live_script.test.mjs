// The steps of the script that keeps the public table up to date, one by one. The feed is the test's own here.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import path from "node:path";

import { ROOT } from "./support/server.mjs";
import { site } from "./support/site.mjs";

const LIVE = readFileSync(path.join(ROOT, "src/web/assets/live.js"), "utf8");
const QUIET = "/?lp=y"; // without the player, so that links stay as they are written

const source = (id, more = {}) => ({ id, mount: `/${id}`, name: `Name ${id}`, meta_song: "Song", genre: "Genre", nodes: 1,
  unique_nodes: 1, content_type: "audio/mpeg", sub_type: "", ...more });

const show = (page, sources, more = {}) =>
  page.evaluate((stats) => showStats(stats), // eslint-disable-line no-undef
    { active_sources: sources.length, total_nodes: 0, ...(sources.length ? { sources } : {}), ...more });

const rows = (page) => page.locator("tr.tableViewCol").evaluateAll((all) => all.map((row) => row.id));
const cells = (page, id) => page.locator(`#internalStation${id} > td`).allInnerTexts();
const link = (page, id) => page.locator(`#internalStation${id} a`).first()
  .evaluate((element) => ["href", "id", "type"].map((name) => element.getAttribute(name)));

site("the live script", {}, () => {}, (here) => {
  const it = (name, act) => here.it(name, async (visitor) => act(await visitor.open(QUIET), visitor));

  it("cuts what is longer than so many characters", async (page) => {
    for (const [text, count, cut] of [["abc", 3, "abc"], ["abcd", 3, "abc..."], ["ab cd", 3, "ab..."], ["", 3, ""],
      ["\u{1F3B5}\u{1F3B6}", 2, "\u{1F3B5}\u{1F3B6}"], ["\u{1F3B5}\u{1F3B6}", 1, "\u{1F3B5}..."]])
      assert.equal(await page.evaluate(([s, most]) => elipse(s, most), [text, count]), cut); // eslint-disable-line no-undef
  });

  it("counts sources and listeners", async (page) => {
    for (const [nodes, words] of [[0, "0 listeners"], [1, "1 listener"], [2, "2 listeners"]]) {
      await show(page, [], { total_nodes: nodes });
      assert.equal(await page.locator("#totalNodes").innerText(), words);
    }
    for (const [sources, words] of [[[], "0 active sources"], [[1], "1 active source"], [[1, 2], "2 active sources"]]) {
      await show(page, sources.map((id) => source(id)));
      assert.equal(await page.locator("#activeSources").innerText(), words);
    }
  });

  it("shows the head with streams, and words without", async (page) => {
    for (const [sources, head] of [[[source(1)], true], [[], false], [[source(1)], true]]) {
      await show(page, sources);
      assert.equal(await page.locator(".tableViewHead").isVisible(), head);
      assert.equal(await page.locator("#tableViewNone").isVisible(), !head);
    }
  });

  it("writes the cells of a stream", async (page) => {
    await show(page, [source(1, { nodes: 3, unique_nodes: 2 }), source(2, { nodes: 3, max_nodes: 9, unique_nodes: 2 })]);
    assert.deepEqual((await cells(page, 1)).slice(1), ["Song", "Genre", "3 (2 unique)"]);
    assert.deepEqual((await cells(page, 2)).slice(1), ["Song", "Genre", "3/9 (2 unique)"]);
    assert.equal(await page.locator("#internalStation1 .streamName").innerText(), "Name 1");
    assert.equal(await page.locator("#internalStation1 .streamName").getAttribute("href"), "/view/1/");
  });

  it("writes links that any mount can have", async (page) => {
    const mount = "/a b&c=d\"e'<f>%é";
    await show(page, [source(1, { mount, content_type: "application/ogg", sub_type: "Vorbis" })]);
    assert.deepEqual(await link(page, 1),
      [`/sbin/tunein.pls?mnt=${encodeURIComponent(mount)}`, mount, 'application/ogg; codecs="vorbis"']);
  });

  it("changes the texts of a row, and keeps the row", async (page) => {
    await show(page, [source(1)]);
    await page.locator("#internalStation1 .streamName").focus();
    await show(page, [source(1, { name: "Other", meta_song: "Next", genre: "Jazz", nodes: 2 })]);
    assert.deepEqual((await cells(page, 1)).slice(1), ["Next", "Jazz", "2 (1 unique)"]);
    assert.equal(await page.evaluate(() => document.activeElement.textContent), "Other", "the reader's place is kept");
  });

  it("puts a new row behind the one before it", async (page) => {
    await show(page, [source(1), source(3)]);
    await show(page, [source(1), source(2), source(3)]);
    assert.deepEqual(await rows(page), ["tableViewNone", "internalStation1", "internalStation2", "internalStation3"]);
    await show(page, [source(4), source(1), source(2), source(3)]);
    assert.deepEqual((await rows(page)).slice(1, 3), ["internalStation4", "internalStation1"]);
  });

  it("removes the rows of streams that have gone", async (page) => {
    await show(page, [source(1), source(2), source(3)]);
    await show(page, [source(2), source(3)]);
    assert.deepEqual(await rows(page), ["tableViewNone", "internalStation2", "internalStation3"]);
    await show(page, [source(2)]);
    assert.deepEqual(await rows(page), ["tableViewNone", "internalStation2"]);
    await show(page, []);
    assert.deepEqual(await rows(page), ["tableViewNone"]);
  });

  it("follows an id to another mount, and streams to another order", async (page) => {
    await show(page, [source(1), source(2)]);
    await show(page, [source(2), source(1, { mount: "/z" })]);
    assert.deepEqual(await rows(page), ["tableViewNone", "internalStation2", "internalStation1"]);
    assert.equal((await link(page, 1))[1], "/z");
  });

  it("takes texts for texts", async (page, visitor) => {
    const bad = "</td><img src=x onerror=alert(1)><script>alert(2)</script>";
    await show(page, [source(1, { mount: bad, name: bad, meta_song: bad, genre: bad, content_type: bad, sub_type: bad })]);
    assert.equal(await page.locator("#internalStation1 .metaSong").innerText(), bad);
    assert.equal(await page.locator("#internalStation1 img").count(), 1);
    assert.equal(await page.locator("#internalStation1 script").count(), 0);
    assert.deepEqual(visitor.dialogs, []);
  });

  it("asks again 50 milliseconds after an answer and a second after a failure", async (page) => {
    const asked = await page.evaluate(() => {
      const asks = [];
      const delays = [];
      window.setTimeout = (_, delay) => delays.push(delay);
      for (const fails of [false, true]) {
        $.getJSON = (address, answer) => { // eslint-disable-line no-undef
          asks.push(address);
          if (!fails) answer({ active_sources: 0, total_nodes: 0 });
          return { fail: (failed) => fails && failed() };
        };
        loadStats(); // eslint-disable-line no-undef
      }
      return { asks, delays };
    });
    assert.deepEqual(asked, { asks: ["/status.json?wfc=y", "/status.json?wfc=y"], delays: [50, 1000] });
  });

  here.it("tells the player of new rows, if there is one", async (visitor) => {
    for (const [address, calls] of [["/", 1], [QUIET, 0]]) {
      const page = await visitor.open(address);
      await page.evaluate("loads = 0; loadPlayLinks = () => { loads++; }");
      await show(page, [source(1)]);
      assert.equal(await page.evaluate("loads"), calls);
    }
  });

  here.it("leaves the table as it is without its library", async (visitor) => {
    const page = await visitor.open("/test.html",
      { pages: { "/test.html": `<!DOCTYPE html><link rel="icon" href="data:,"><script>${LIVE}</script><p>Here</p>` } });
    assert.equal(await page.locator("p").innerText(), "Here");
  });
});
