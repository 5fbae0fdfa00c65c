// The event log, as it grows.
import assert from "node:assert/strict";

import { site } from "./support/site.mjs";
import { until } from "./support/until.mjs";

const READER = { as: "admin", patience: "domcontentloaded" }; // the log never ends

const words = (page) => page.frameLocator("#log_window").locator("body").innerText();

site("the event log", {}, () => {}, (here) => {
  here.it("grows before the reader's eyes, and scrolls along", async (visitor) => {
    const page = await visitor.open("/admin/log", READER);
    await here.source(1);
    await until("the source is told of", async () => (await words(page)).includes("Source Connected"));
    for (let round = 0; round < 30; round++) await here.leave(await here.listener("/demo"));
    const scrolled = () => page.locator("#log_window").evaluate((frame) => frame.contentWindow.scrollY);
    await until("it scrolls", async () => (await scrolled()) > 0);
  });

  here.it("runs no script of a stranger's", async (visitor) => {
    const page = await visitor.open("/admin/log", READER);
    await until("the log is open", () => page.frames().length === 2);
    await here.source(1, { agent: "<script>parent.alert(1)</script>" });
    await here.listener("/demo", { agent: "<img src=x onerror=parent.alert(2)>" });
    await until("the listener is told of", async () => /onerror/.test(here.server.read("quillwave.log")));
    await page.waitForTimeout(500);
    assert.deepEqual(visitor.dialogs, []);
    visitor.tolerate(/Blocked script execution/);
  });
});
