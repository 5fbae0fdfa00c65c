// Who is listening, and what a manager does about it. The listeners come from addresses of their own, so that a
// ban leaves the browser alone.
import assert from "node:assert/strict";

import { button, field, follow, row, shows, submit, texts } from "./support/forms.mjs";
import { site } from "./support/site.mjs";
import { until } from "./support/until.mjs";

async function arrange(here) {
  await here.source(1);
  await here.source(2);
}

const listen = (here, last, agent, more) => here.listener("/one", { from: `127.0.0.${last}`, agent, ...more });

async function tickListener(page, agent, action) {
  await row(page, agent).locator("input[type=checkbox]").check();
  await submit(page, action);
}

// Whether someone at this address is let in.
async function letIn(here, last, address = "/one") {
  const listener = await here.listener(address, { from: `127.0.0.${last}`, patient: false });
  const welcome = /^\S+ 200 /.test(listener.head);
  await here.leave(listener);
  return welcome;
}

const propertiesOf = (here, name) => here.server.read("quillwave-users.xml").split(`<${name}>`)[1]?.split(`</${name}>`)[0];

site("the listeners", { mounts: ["/one", "/two", "/three"] }, arrange, (here) => {
  here.it("are not there", async (visitor) => {
    const page = await visitor.open("/admin/listeners", { as: "admin" });
    await shows(page.locator("table.tableView"), "There are currently no listeners connected.");
  });

  here.it("are sorted, and stay so for this visitor", async (visitor) => {
    const parties = [await listen(here, 12, "Bee"), await listen(here, 11, "Cat"), await listen(here, 13, "Ant")];
    const page = await visitor.open("/admin/listeners", { as: "admin" });
    const agents = async () => (await texts(page.locator("tr.tableViewCol td:nth-child(4)"))).slice(0, 3);
    await follow(page, page.getByRole("link", { name: "User-Agent", exact: true }));
    assert.deepEqual(await agents(), ["Ant", "Bee", "Cat"]);
    await follow(page, page.getByRole("link", { name: "Address", exact: true }));
    assert.deepEqual(await agents(), ["Cat", "Bee", "Ant"]);
    await page.goto("/admin/listeners");
    assert.deepEqual(await agents(), ["Cat", "Bee", "Ant"]);
  });

  here.it("are looked at one by one", async (visitor) => {
    const listener = await listen(here, 14, '"><script>alert(1)</script>', { query: "?a=<b>" });
    const page = await visitor.open("/admin/listeners", { as: "admin" });
    await follow(page, row(page, "127.0.0.14").locator("a").first());
    await shows(field(page, "Method:"), "GET");
    await shows(field(page, "Remote Address:"), /127\.0\.0\.14/);
    await shows(field(page, "User-Agent:"), '"><script>alert(1)</script>');
    await shows(field(page, "Requested Resource:"), /^\/one .*\/one\)?$/);
    await shows(field(page, "Raw Request:"), /^GET \/one/);
    assert.deepEqual(visitor.dialogs, []);
  });

  here.it("are kicked", async (visitor) => {
    const [stays, goes] = [await listen(here, 15, "Stays"), await listen(here, 15, "Goes")];
    const page = await visitor.open("/admin/listeners", { as: "admin" });
    await tickListener(page, "Goes", "Kick");
    await goes.closed;
    assert.equal(stays.gone, undefined);
    assert.ok(await letIn(here, 15));
  });

  here.it("are kicked all together", async (visitor) => {
    const parties = [await listen(here, 16, "First"), await listen(here, 17, "Second")];
    const page = await visitor.open("/admin/stream/1/listeners", { as: "admin" });
    await page.locator("#master_select_check").check();
    await submit(page, "Kick");
    for (const party of parties) await party.closed;
  });

  here.it("are banned by address, everywhere or from one stream", async (visitor) => {
    const parties = [await listen(here, 21, "Everywhere"), await listen(here, 22, "Here")];
    const page = await visitor.open("/admin/listeners", { as: "admin" });
    await tickListener(page, "Everywhere", "Ban");
    await page.goto("/admin/stream/1/listeners");
    await tickListener(page, "Here", "Ban");
    for (const party of parties) await party.closed;
    assert.deepEqual([await letIn(here, 21), await letIn(here, 21, "/two")], [false, false]);
    assert.deepEqual([await letIn(here, 22), await letIn(here, 22, "/two")], [false, true]);
    await until("the bans are in the file", () => /mount="-1">\s*<filter type="IP">127\.0\.0\.21</.test(propertiesOf(here, "banned")));
    await page.goto("/admin/users?m=b");
    await shows(row(page, "127.0.0.21"), /IP All Resources$/);
    await shows(row(page, "127.0.0.22"), /IP \/one$/);
  });

  here.it("are banned by their program, whatever it calls itself", async (visitor) => {
    const agent = '"><img src=x onerror=alert(2)>';
    const listener = await listen(here, 23, agent);
    const page = await visitor.open("/admin/stream/1/listeners", { as: "admin" });
    await tickListener(page, agent, "Ban User Agent");
    await listener.closed;
    await page.goto("/admin/stream/1/bans");
    await shows(row(page, agent), /User Agent \/one$/);
    await row(page, agent).locator("input[type=checkbox]").check();
    await submit(page, "Delete");
    assert.equal(await row(page, agent).count(), 0);
    assert.deepEqual(visitor.dialogs, []);
  });

  here.it("are banned with their neighbours", async (visitor) => {
    const listener = await here.listener("/two", { from: "127.0.9.5", agent: "Neighbour" });
    const page = await visitor.open("/admin/stream/2/listeners", { as: "admin" });
    await tickListener(page, "Neighbour", "Ban Net");
    await listener.closed;
    await page.goto("/admin/stream/2/bans");
    await shows(row(page, "127.0.9.0/24"), /Subnet \/two$/);
  });

  here.it("are given a place of their own", async (visitor) => {
    const parties = [await listen(here, 31, "Guest"), await listen(here, 32, "Member", { authorization: "anna:secret" })];
    const page = await visitor.open("/admin/stream/1/listeners", { as: "admin" });
    await tickListener(page, "Guest", "VIP");
    await tickListener(page, "Member", "VIP");
    await page.goto("/admin/stream/1/reserve");
    await shows(row(page, "127.0.0.31"), /IP \/one$/);
    await page.goto("/admin/users");
    await shows(row(page, "anna"), "anna Listener");
  });

  here.it("are moved to another stream", async (visitor) => {
    const listener = await listen(here, 33, "Wanderer");
    const page = await visitor.open("/admin/listeners", { as: "admin" });
    const choice = page.locator("select[name=destStationId]");
    assert.deepEqual(await texts(choice.locator("option")), ["-- Select Mount --", "/one", "/two"]);
    await row(page, "Wanderer").locator("input[type=checkbox]").check();
    await choice.selectOption({ label: "/two" });
    await submit(page, "Move To:");
    await until("the listener has moved", async () => {
      await page.goto("/admin/listeners");
      return (await row(page, "Wanderer").locator("td").nth(1).innerText()).startsWith("/two");
    });
    assert.match(here.server.read("quillwave.log"), /<127\.0\.0\.33> Moving from \/one to \/two/);
    const before = listener.bytes;
    await until("the stream goes on", () => listener.bytes > before);
  });

  here.it("are the manager's own only", async (visitor) => {
    const parties = [await listen(here, 34, "Mine"), await here.listener("/three", { from: "127.0.0.35", patient: false }),
      await here.listener("/two", { from: "127.0.0.36", agent: "Foreign" })];
    const page = await visitor.open("/admin/listeners", { as: "manager" });
    assert.equal(await row(page, "Mine").count(), 1);
    assert.equal(await row(page, "Foreign").count(), 0);
    assert.equal(await button(page, "Move To:").count(), 0);
  });
});
