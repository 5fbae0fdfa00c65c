// Every page, wide and narrow. The pictures in build/browser are for people to look at; what the tests can tell by
// themselves is that no page is wider than its window, and that each picture in it is really there.
import assert from "node:assert/strict";

import { button, follow, submit } from "./support/forms.mjs";
import { NARROW, site, WIDE } from "./support/site.mjs";
import { until } from "./support/until.mjs";

const ADMIN = { as: "admin" };
const TAIL = { as: "admin", patience: "domcontentloaded" }; // the log never ends

// What it is called, where it is, who looks, and what he does first.
const PAGES = [
  ["home", "/"],
  ["about", "/about"],
  ["view", "/view/1/"],
  ["view played", "/view/1/played"],
  ["streams", "/admin", ADMIN],
  ["streams add", "/admin", ADMIN, (page) => button(page, "Add").click()],
  ["listeners", "/admin/listeners", ADMIN],
  ["listener", "/admin/listeners", ADMIN, (page) => follow(page, page.locator('a[href^="/admin/receiver/"]').first())],
  ["settings", "/admin/configure", ADMIN],
  ["settings add", "/admin/configure", ADMIN, (page) => button(page, "Add Entry").click()],
  ["defaults", "/admin/configure_defaults", ADMIN],
  ["users", "/admin/users", ADMIN],
  ["user", "/admin/users?u=manager", ADMIN],
  ["user access", "/admin/users?u=manager", ADMIN, (page) => submit(page, "Edit Access")],
  ["user new", "/admin/users", ADMIN, (page) => submit(page, "Create")],
  ["bans", "/admin/users?m=b", ADMIN],
  ["ban new", "/admin/users?m=b", ADMIN, (page) => submit(page, "Create")],
  ["reserves", "/admin/users?m=v", ADMIN],
  ["stream", "/admin/stream/1/", ADMIN],
  ["stream listeners", "/admin/stream/1/listeners", ADMIN],
  ["stream played", "/admin/stream/1/played", ADMIN],
  ["stream publication", "/admin/stream/1/publication", ADMIN],
  ["stream configure", "/admin/stream/1/configure", ADMIN],
  ["stream users", "/admin/stream/1/users", ADMIN],
  ["stream bans", "/admin/stream/1/bans", ADMIN],
  ["stream reserve", "/admin/stream/1/reserve", ADMIN],
  ["log", "/admin/log", TAIL, (page) => until("lines come", () => page.frameLocator("#log_window").locator("body").innerText())],
];

const widthOf = (page) => page.evaluate(() => document.documentElement.scrollWidth);
// The boxes whose content is wider than they are, and so has to be scrolled sideways.
const crammed = (page) => page.evaluate(() => [...document.querySelectorAll("#displayArea, .tabView > div, .messageBox")]
  .filter((box) => box.scrollWidth > box.clientWidth).map((box) => box.id || box.className || box.tagName));
const missingPictures = (page) => page.evaluate(() =>
  [...document.images].filter((image) => !image.naturalWidth).map((image) => image.src));

async function inBothSizes(visitor, page, name) {
  for (const [word, size] of Object.entries({ wide: WIDE, narrow: NARROW })) {
    await page.setViewportSize(size);
    await visitor.photograph(`${name} ${word}`);
    assert.ok((await widthOf(page)) <= size.width, `${word}: the page is ${await widthOf(page)} pixels wide`);
    if (size === WIDE) assert.deepEqual(await crammed(page), []);
  }
  assert.deepEqual(await missingPictures(page), []);
}

async function arrange(here) {
  await here.demoStation();
  const long = await here.source(2, { name: "The Station with an Uncommonly Long Name ".repeat(3), genre: "Neoclassical Darkwave" });
  long.title("Symphony No. 9 in D minor, Op. 125: IV. Finale ".repeat(3));
  await here.listener("/demo", { agent: "Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36 (KHTML, like Gecko) Player/12.0" });
  await here.listener("/demo", { agent: "Player/1.0", authorization: "listener:hackme" });
}

const MOUNTS = ["/demo", "/the/station/with/a/very/long/address/indeed", "/idle", "/off"];

site("a window", { mounts: MOUNTS, settings: ["SourceDisabled4=yes", "Note=words"] }, arrange, (here) => {
  for (const [name, address, options, act = () => {}] of PAGES)
    here.it(`holds the page "${name}"`, async (visitor) => {
      const page = await visitor.open(address, options);
      await act(page);
      await inBothSizes(visitor, page, name);
    });
});

site("a window", {}, () => {}, (here) => {
  for (const [name, address, options] of [["home empty", "/"], ["streams idle", "/admin", ADMIN]])
    here.it(`holds the page "${name}"`, async (visitor) =>
      inBothSizes(visitor, await visitor.open(address, options), name));

  here.it("holds an alert beside the logo", async (visitor) => {
    const page = await visitor.open("/about");
    await page.evaluate("toggle('Something is the matter', 2)");
    await inBothSizes(visitor, page, "alert");
    const [alert, logo] = [await page.locator("#innerAlert").boundingBox(), await page.locator('img[alt="Quill"]').boundingBox()];
    assert.ok(alert.x >= logo.x + logo.width, "the logo hides the words");
  });

  here.it("holds a page about what went wrong", async (visitor) => {
    const page = await visitor.open("/nothing/here");
    assert.equal(await page.title(), "Quillwave Multimedia Server - Page Not Found");
    await inBothSizes(visitor, page, "not found");
    visitor.expectFault(/status of 404 .*nothing\/here/);
  });
});
