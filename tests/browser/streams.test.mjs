// The administrator's table of streams, and the pages of one stream.
import assert from "node:assert/strict";

import { box, button, field, follow, shows, submit, texts, tickAnd } from "./support/forms.mjs";
import { site } from "./support/site.mjs";
import { until } from "./support/until.mjs";

const block = async (page, address) => {
  const rows = await texts(page.locator("table.tableView tr"));
  const place = rows.findIndex((text) => text.split(/[\s\t]/).includes(address));
  const heading = rows.slice(0, place).filter((text) => /^(Inactive|Disabled) Mounts$/.test(text)).pop();
  return place < 0 ? "none" : heading ?? "connected";
};

// The table is not live, and a mount takes a moment to obey.
const standsUnder = (page, address, heading) => until(`${address} stands under ${heading}`, async () => {
  await page.goto("/admin");
  return (await block(page, address)) === heading;
});

const arrange = (here) => here.demoStation();

site("the streams of an administrator", { mounts: ["/demo", "/second", "/idle"] }, arrange, (here) => {
  const settingsHold = (what, wanted) =>
    until(`the settings file ${wanted ? "holds" : "has lost"} ${what}`, () =>
      here.server.read("quillwave.conf").includes(what) === wanted);

  here.it("stand in one table", async (visitor) => {
    await here.source(2);
    const page = await visitor.open("/admin", { as: "admin" });
    assert.equal(await page.title(), "Quillwave Multimedia Server - Administration Panel");
    assert.match(await page.locator(".pageBar").innerText(), /^Welcome admin! /);
    assert.deepEqual(await texts(page.locator(".tabView > ul > li")), ["Streams", "Listeners", "Settings", "Mount Defaults"]);
    assert.equal(await block(page, "/demo"), "connected");
    assert.equal(await block(page, "/second"), "connected");
    assert.equal(await block(page, "/idle"), "Inactive Mounts");
    await until("the title is shown", async () => {
      await page.reload();
      return /^(Low Tide|Paper Lanterns)$/.test(await page.locator("#internalStation1 .metaSong").innerText());
    });
  });

  here.it("are ticked all at once", async (visitor) => {
    const page = await visitor.open("/admin", { as: "admin" });
    const ticked = () => page.locator("input#select_check").evaluateAll((boxes) => boxes.map((one) => one.checked));
    await page.locator("#master_select_check").check();
    assert.deepEqual(await ticked(), [true, true, true]);
    await page.locator("#master_select_check").uncheck();
    assert.deepEqual(await ticked(), [false, false, false]);
  });

  here.it("are created, disabled, enabled and deleted, in the file too", async (visitor) => {
    const page = await visitor.open("/admin", { as: "admin" });
    await button(page, "Add").click();
    await page.locator('input[name="addr"]').fill("late");
    await submit(page, "Create");
    assert.equal(await block(page, "/late"), "Inactive Mounts");
    await settingsHold("=/late", true);

    await tickAnd(page, ["/late"], "Disable");
    await standsUnder(page, "/late", "Disabled Mounts");
    await tickAnd(page, ["/late"], "Enable");
    await standsUnder(page, "/late", "Inactive Mounts");
    await tickAnd(page, ["/late"], "Delete");
    assert.equal(await block(page, "/late"), "none");
    await settingsHold("=/late", false);
  });

  here.it("are worked by the keyboard alone", async (visitor) => {
    const page = await visitor.open("/admin", { as: "admin" });
    await box(page, "/idle").focus();
    await page.keyboard.press("Space");
    await button(page, "Disable").focus();
    await Promise.all([page.waitForEvent("load"), page.keyboard.press("Enter")]);
    await standsUnder(page, "/idle", "Disabled Mounts");
    await tickAnd(page, ["/idle"], "Enable");
    await standsUnder(page, "/idle", "Inactive Mounts");
  });

  here.it("take the query back unanswered", async (visitor) => {
    const page = await visitor.open("/admin", { as: "admin" });
    const before = await page.locator("#mount_actions").innerHTML();
    await button(page, "Add").click();
    assert.equal(await button(page, "Kick").count(), 0);
    await button(page, "Done").click();
    assert.equal(await page.locator("#mount_actions").innerHTML(), before);
  });

  here.it("lose a kicked source, which may come back", async (visitor) => {
    const source = await here.source(2);
    const page = await visitor.open("/admin", { as: "admin" });
    await tickAnd(page, ["/second"], "Kick");
    await source.closed;
    await standsUnder(page, "/second", "Inactive Mounts");
    await here.source(2);
    await standsUnder(page, "/second", "connected");
  });

  here.it("keep their markup to themselves", async (visitor) => {
    const page = await visitor.open("/admin", { as: "admin" });
    await button(page, "Add").click();
    await page.locator('input[name="addr"]').fill('/"><script>alert(1)</script>');
    await submit(page, "Create");
    const address = '/"><script>alert(1)</script>';
    await box(page, address).waitFor();
    await follow(page, page.getByRole("link", { name: address, exact: true }));
    await shows(page.locator("tr", { hasText: "Stream Status:" }), /"><script>alert\(1\)<\/script> is offline/);
    await page.goto("/admin");
    await tickAnd(page, [address], "Delete");
    assert.equal(await box(page, address).count(), 0);
    assert.deepEqual(visitor.dialogs, []);
  });
});

site("the pages of one stream", { mounts: ["/demo", "/second"] }, arrange, (here) => {
  const PAGES = ["Stats", "Listeners", "Played", "Publication Lists", "Configure", "Users", "Bans", "Reserve"];

  here.it("hang together by tabs", async (visitor) => {
    const page = await visitor.open("/admin", { as: "admin" });
    await follow(page, page.locator("#internalStation1 .streamName"));
    for (const name of PAGES) {
      assert.deepEqual(await texts(page.locator(".tabView > ul > li")), PAGES);
      if (name !== "Stats") await follow(page, page.locator(".tabView > ul a", { hasText: name }));
      await shows(page.locator(".tabView > ul > li#selected"), name);
    }
  });

  here.it("tell of the stream, and forget its figures", async (visitor) => {
    const page = await visitor.open("/admin/stream/1/", { as: "admin" });
    await shows(field(page, "Stream Status:"), "demo is online and currently private");
    await shows(field(page, "Name:"), "Quillwave Demo");
    await shows(field(page, "Content Type:"), "audio/mpeg");
    await shows(field(page, "Bitrate:"), /\(96\)$/);
    await here.listener("/demo");
    await page.reload();
    await shows(field(page, "Listeners:"), "1 (1 Unique)");
    await shows(field(page, "Tune-Ins:"), "1 (5 mins: 0)");
    await submit(page, "Reset Stats");
    await shows(field(page, "Tune-Ins:"), "0 (5 mins: 0)");
  });

  here.it("kick, disable and enable it", async (visitor) => {
    const source = await here.source(2);
    const page = await visitor.open("/admin/stream/2/", { as: "admin" });
    await submit(page, "Kick");
    await source.closed;
    await submit(page, "Disable");
    const reloaded = (name) => until(`the page offers ${name}`, async () => {
      await page.goto("/admin/stream/2/");
      return (await button(page, name).count()) === 1;
    });
    await reloaded("Enable");
    await submit(page, "Enable");
    await reloaded("Disable");
    await here.source(2);
    await page.reload();
    await shows(field(page, "Stream Status:"), "second is online and currently private");
  });

  here.it("list the songs played", async (visitor) => {
    const source = (await here.source(2)).title("Inkwell");
    const page = await visitor.open("/admin/stream/2/", { as: "admin" });
    await until("the title arrives", async () => {
      await page.reload();
      return (await field(page, "Now Playing:").innerText()) === "Inkwell";
    });
    await source.title("<i>Low</i> Tide").told();
    source.title("Morning");
    await until("it has ended, as the next has", async () => {
      await page.goto("/admin/stream/2/played");
      return (await texts(page.locator("table.tableView tr"))).length === 3;
    });
    const [head, last, first] = await texts(page.locator("table.tableView tr"));
    assert.equal(head, "Last 2 tracks played on second");
    assert.match(last, / ago <i>Low<\/i> Tide$/);
    assert.match(first, / ago Inkwell$/);
  });

  here.it("list the directories", async (visitor) => {
    const page = await visitor.open("/admin/stream/1/publication", { as: "admin" });
    await shows(page.locator("table.tableView"), "No directories are available.");
  });

  here.it("are all that the manager of one stream sees", async (visitor) => {
    const page = await visitor.open("/admin", { as: "manager" });
    assert.equal(new URL(page.url()).pathname, "/admin/");
    assert.deepEqual(await texts(page.locator(".tabView > ul > li")), PAGES);
    await shows(field(page, "Stream Status:"), "demo is online and currently private");
    await page.goto("/admin/users");
    await shows(page.locator(".tabView > ul > li#selected"), "Users");
  });

  here.it("are offered to the manager of several in a table without Add and Delete", async (visitor) => {
    const page = await visitor.open("/admin", { as: "keeper" });
    assert.deepEqual(await texts(page.locator(".tabView > ul > li")), ["Streams", "Listeners"]);
    for (const [name, count] of [["Kick", 1], ["Disable", 1], ["Enable", 1], ["Add", 0], ["Delete", 0]])
      assert.equal(await button(page, name).count(), count, name);
    await tickAnd(page, ["/second"], "Disable");
    await standsUnder(page, "/second", "Disabled Mounts");
    await tickAnd(page, ["/second"], "Enable");
    await standsUnder(page, "/second", "Inactive Mounts");
  });

  here.it("stay closed to a listener and to strangers", async (visitor) => {
    await visitor.open("/admin", { as: "listener" }).catch(() => {});
    for (const as of ["listener", undefined]) {
      const page = await visitor.open("/about", { as });
      const answer = await page.goto("/admin").catch((fault) => fault);
      assert.match(answer.message ?? String(answer.status()), /401|ERR_INVALID_AUTH_CREDENTIALS/);
    }
    visitor.expectFault(/401/);
  });
});
