// The public home page, and how it keeps itself up to date.
import assert from "node:assert/strict";

import { shows, texts } from "./support/forms.mjs";
import { site } from "./support/site.mjs";
import { pause } from "./support/until.mjs";

const stream = (page, number) => page.locator(`#internalStation${number}`);
const TITLE = /^(Low Tide|Paper Lanterns|The Long Wave|Inkwell)$/; // of the demo station
const bar = (page) => page.locator(".pageBar");

site("the home page", { mounts: ["/demo"] }, (here) => here.demoStation(), (here) => {
  here.it("lists the demo station", async (visitor) => {
    const page = await visitor.open("/");
    assert.equal(await page.title(), "Quillwave Multimedia Server");
    await shows(stream(page, 1).locator(".streamName"), "Quillwave Demo");
    await shows(stream(page, 1).locator(".metaSong"), TITLE);
    await shows(stream(page, 1).locator(".genreBitrate"), "Ambient");
    await shows(stream(page, 1).locator(".receiversCount"), "0 (0 unique)");
    await shows(bar(page), "Currently there is 1 active source with 0 listeners!");
    assert.deepEqual(await texts(page.locator(".tableViewHead td:visible, .tableViewHead th:visible")),
      ["Name", "Playing", "Genre", "Listeners"]);
  });

  here.it("leads to the page of a stream", async (visitor) => {
    const page = await visitor.open("/");
    await page.click("#internalStation1 .streamName");
    await page.waitForURL("**/view/1/");
    await shows(page.locator(".tabView li#selected"), "Stats");
    await page.click(".tabView a");
    await page.waitForURL("**/view/1/played");
    await shows(page.locator("table.tableView"), /^(There is currently no song history\.|Last \d tracks played on demo)/);
  });

  here.it("is worked by the keyboard alone", async (visitor) => {
    const page = await visitor.open("/");
    const reached = new Set();
    for (let presses = 0; presses < 30; presses++) {
      await page.keyboard.press("Tab");
      const { id, outline } = await page.evaluate(() => ({ id: document.activeElement.id ||
        document.activeElement.textContent, outline: getComputedStyle(document.activeElement).outlineStyle }));
      reached.add(id);
      if (id === "/demo") assert.notEqual(outline, "none", "the reader sees where he is");
    }
    for (const wanted of ["Home", "Admin", "About", "Broadcast", "Community", "/demo", "Quillwave Demo"])
      assert.ok(reached.has(wanted), `${wanted} is out of reach: ${[...reached]}`);
  });

  here.it("opens a menu for the keyboard", async (visitor) => {
    const page = await visitor.open("/");
    const broadcast = page.locator(".siteMenu a", { hasText: "Broadcast" });
    assert.ok((await broadcast.boundingBox()).x < 0, "the menu is closed");
    await broadcast.focus();
    const { x, y } = await broadcast.boundingBox();
    assert.ok(x > 0 && y > 0, "the focused entry is seen");
  });

  here.it("shows an alert, and hides it again", async (visitor) => {
    const page = await visitor.open("/");
    const alert = page.locator("#pageAlert");
    assert.equal(await alert.isVisible(), false);
    for (const [level, colour] of [[0, "rgb(85, 255, 85)"], [1, "rgb(255, 255, 0)"], [2, "rgb(255, 85, 85)"]]) {
      await page.evaluate((number) => toggle("Look here", number), level); // eslint-disable-line no-undef
      await shows(page.locator("#innerAlert"), "Look here");
      assert.equal(await alert.evaluate((box) => getComputedStyle(box).backgroundColor), colour);
      await page.evaluate("toggle()");
      assert.equal(await alert.isVisible(), false);
    }
  });
});

// A page asks again 50 milliseconds after each answer. What changes meanwhile is shown at the next change.
const asksAgain = () => pause(1000);

site("the live table", { mounts: ["/one", "/two"] }, () => {}, (here) => {
  here.it("follows a station that comes and goes", async (visitor) => {
    const page = await visitor.open("/");
    await shows(page.locator("#tableViewNone"), "No streams are available.");
    assert.equal(await page.locator(".tableViewHead").isVisible(), false);

    await asksAgain();
    const source = await here.source(2);
    await shows(stream(page, 2).locator(".streamName"), "Station 2");
    await shows(bar(page), "Currently there is 1 active source with 0 listeners!");
    assert.equal(await page.locator("#tableViewNone").isVisible(), false);
    assert.equal(await page.locator(".tableViewHead").isVisible(), true);

    await asksAgain();
    await here.leave(source);
    await stream(page, 2).waitFor({ state: "detached" });
    await shows(bar(page), "Currently there is 0 active sources with 0 listeners!");
    await shows(page.locator("#tableViewNone"), "No streams are available.");
    assert.equal(await page.locator(".tableViewHead").isVisible(), false);
  });
});

const oneThatChanges = async (here) => (await here.source(1)).changing();

site("the live table of several", { mounts: ["/one", "/two", "/three"] }, oneThatChanges, (here) => {
  const numbers = (page) => page.locator("tr.tableViewCol:visible").evaluateAll((rows) => rows.map((row) => row.id));

  here.it("follows what changes", async (visitor) => {
    const page = await visitor.open("/");
    const source = await here.source(2);
    source.title("Paper Lanterns");
    await shows(stream(page, 2).locator(".metaSong"), "Paper Lanterns");

    const listener = await here.listener("/two");
    await shows(stream(page, 2).locator(".receiversCount"), "1 (1 unique)");
    await shows(page.locator("#totalNodes"), "1 listener");
    await here.leave(listener);
    await shows(stream(page, 2).locator(".receiversCount"), "0 (0 unique)");
    await shows(page.locator("#totalNodes"), "0 listeners");

    await here.leave(source);
    await stream(page, 2).waitFor({ state: "detached" });
    await shows(page.locator("#activeSources"), "1 active source");
  });

  here.it("stands in the same order as after a new visit", async (visitor) => {
    await here.source(2);
    const page = await visitor.open("/");
    await here.source(3);
    await stream(page, 3).waitFor();
    const live = await numbers(page);
    assert.deepEqual(live, ["internalStation1", "internalStation3", "internalStation2"]); // by address
    await page.reload();
    assert.deepEqual(await numbers(page), live);
  });

  here.it("builds the same row as the server does", async (visitor) => {
    const page = await visitor.open("/");
    const source = await here.source(2, { name: "Tea & <b>Biscuits</b>", genre: "Jazz & Blues" });
    source.title('Say "hello" & wave');
    await shows(stream(page, 2).locator(".metaSong"), 'Say "hello" & wave');
    const markup = () => stream(page, 2).evaluate((row) => row.outerHTML.replace(/\s+/g, " ").replace(/; ?"/g, '"'));
    const live = await markup();
    await page.reload();
    assert.equal(live, await markup());
  });

  here.it("shows hostile texts as texts", async (visitor) => {
    const page = await visitor.open("/");
    const source = await here.source(2, { name: '<img src=x onerror="alert(1)">', genre: "<script>alert(2)</script>" });
    source.title('</td><script>alert(3)</script><img src=x onerror=alert(4)>');
    await shows(stream(page, 2).locator(".streamName"), '<img src=x onerror="alert(1)">');
    await shows(stream(page, 2).locator(".genreBitrate"), "<script>alert(2)</script>");
    await shows(stream(page, 2).locator(".metaSong"), "</td><script>alert(3)</script><img src=x onerror=alert(4)>");
    await page.reload();
    await shows(stream(page, 2).locator(".metaSong"), "</td><script>alert(3)</script><img src=x onerror=alert(4)>");
    assert.deepEqual(visitor.dialogs, []);
  });

  here.it("cuts what is too long", async (visitor) => {
    const page = await visitor.open("/");
    const source = await here.source(2, { name: "n".repeat(120), genre: "g".repeat(40) });
    source.title("t".repeat(100));
    await shows(stream(page, 2).locator(".metaSong"), `${"t".repeat(90)}...`);
    await shows(stream(page, 2).locator(".streamName"), `${"n".repeat(90)}...`);
    await shows(stream(page, 2).locator(".genreBitrate"), `${"g".repeat(30)}...`);
  });
});
