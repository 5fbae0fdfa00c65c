// Accounts, bans and reserved places.
import assert from "node:assert/strict";

import { box, button, follow, row, rowOf, shows, submit, texts, tickAnd } from "./support/forms.mjs";
import { ACCOUNTS } from "./support/server.mjs";
import { site } from "./support/site.mjs";

const USERS = "/admin/users";

async function fillAccount(page, { username, password, confirm = password, group }) {
  if (username) await page.locator('input[name="username"]').fill(username);
  if (password) {
    await page.locator('input[name="password"]').fill(password);
    await page.locator('input[name="password-confirm"]').fill(confirm);
  }
  if (group) await page.locator('select[name="group"]').selectOption({ label: group });
}

async function create(page, account) {
  await submit(page, "Create");
  await fillAccount(page, account);
  await submit(page, "Create");
}

async function addProperty(page, target, type) {
  await submit(page, "Create");
  await page.locator('input[name="target"]').fill(target);
  await page.locator('select[name="type"]').selectOption({ label: type });
  await submit(page, "Create");
}

const groups = (page) => page.locator('select[name="group"] option').allInnerTexts();
const openAccount = (page, name) => follow(page, page.getByRole("link", { name, exact: true }));

site("the accounts", { mounts: ["/demo", "/second"] }, (here) => here.demoStation(), (here) => {
  const file = () => here.server.read("quillwave-users.xml");

  here.it("are listed with their groups", async (visitor) => {
    const page = await visitor.open(USERS, { as: "admin" });
    assert.deepEqual(await texts(page.locator(".tabView > ul > li")), ["Users", "Bans", "Reserves"]);
    await shows(rowOf(page, "manager"), "manager Mount Manager");
    await shows(rowOf(page, "listener"), "listener Listener");
    assert.ok(await box(page, "admin").isDisabled(), "nobody deletes himself");
    await page.locator("#master_select_check").check();
    assert.equal(await box(page, "admin").isChecked(), false);
    assert.equal(await box(page, "manager").isChecked(), true);
  });

  here.it("are created, used, edited and deleted", async (visitor) => {
    const page = await visitor.open(USERS, { as: "admin" });
    await create(page, { username: "anna", password: "first", group: "Administrator" });
    await shows(rowOf(page, "anna"), "anna Administrator");
    assert.match(file(), /<username>anna<\/username>/);

    ACCOUNTS.anna = { username: "anna", password: "first" };
    await visitor.open(USERS, { as: "anna" });
    visitor.expectFault(/status of 401/); // an account is no good before it has rights
    await openAccount(page, "anna");
    await submit(page, "Edit Access");
    await addProperty(page, "*", "All");
    const hers = await visitor.open(USERS, { as: "anna" });
    await shows(rowOf(hers, "anna"), "anna Administrator");
    assert.ok(await box(hers, "anna").isDisabled());

    await page.goto(USERS);
    await openAccount(page, "anna");
    assert.equal(await page.locator('input[name="password"]').inputValue(), "*******");
    await fillAccount(page, { group: "Listener" });
    await submit(page, "Save");
    await shows(rowOf(page, "anna"), "anna Listener");
    assert.match(file(), /<username>anna<\/username>\s*<password[^>]*>first<\/password>\s*<usergroup>Listener/);

    await openAccount(page, "anna");
    await fillAccount(page, { password: "second" });
    await submit(page, "Save");
    assert.match(file(), /<username>anna<\/username>\s*<password[^>]*>second</);

    await tickAnd(page, ["anna"], "Delete");
    assert.equal(await rowOf(page, "anna").count(), 0);
    assert.doesNotMatch(file(), /anna/);
  });

  here.it("want the same password twice", async (visitor) => {
    const page = await visitor.open(USERS, { as: "admin" });
    await create(page, { username: "bert", password: "one", confirm: "two", group: "Listener" });
    assert.equal(await page.locator('input[name="password-confirm"]').count(), 1, "the form is back");
    await submit(page, "Cancel");
    assert.equal(await rowOf(page, "bert").count(), 0);
  });

  here.it("are left alone when the form is reset or cancelled", async (visitor) => {
    const page = await visitor.open(USERS, { as: "admin" });
    await openAccount(page, "listener");
    await fillAccount(page, { group: "Administrator" });
    await page.locator('input[type="reset"]').click();
    assert.equal(await page.locator('select[name="group"]').evaluate((list) => list.selectedOptions[0].text), "Listener");
    await fillAccount(page, { group: "Administrator" });
    await submit(page, "Cancel");
    await shows(rowOf(page, "listener"), "listener Listener");
  });

  here.it("have rights on streams", async (visitor) => {
    const page = await visitor.open(USERS, { as: "admin" });
    await openAccount(page, "listener");
    await page.locator('select[name="property_list"]').selectOption({ label: "/second (0)" });
    await submit(page, "Edit Access");
    await shows(page.locator("table.tableView"), /^No properties are currently configured for listener\./);
    await addProperty(page, "10.0.0.1", "IP");
    await page.goto(`${USERS}?u=listener`);
    await page.locator('select[name="property_list"]').selectOption({ label: "/second (1)" });
    await submit(page, "Edit Access");
    await shows(row(page, "10.0.0.1"), "10.0.0.1 IP /second");
    await tickAnd(page, ["10.0.0.1"], "Delete");
    assert.doesNotMatch(file(), /10\.0\.0\.1/);
  });

  here.it("may have any name", async (visitor) => {
    const page = await visitor.open(USERS, { as: "admin" });
    const name = `"'><script>alert(1)</script>&`;
    await create(page, { username: name, password: "x", group: "Listener" });
    await openAccount(page, name);
    await shows(row(page, "Username:"), `Username: ${name}`);
    await submit(page, "Cancel");
    await tickAnd(page, [name], "Delete");
    assert.equal(await rowOf(page, name).count(), 0);
    assert.deepEqual(visitor.dialogs, []);
  });

  here.it("made for a stream have that stream, and go with it", async (visitor) => {
    const page = await visitor.open("/admin/stream/2/users", { as: "admin" });
    await create(page, { username: "carl", password: "x", group: "Mount Source" });
    await shows(rowOf(page, "carl"), "carl Mount Source");
    assert.match(file(), /carl[\s\S]*?<property mount="2">\s*<filter type="All">\*</);
    await tickAnd(page, ["carl"], "Delete");
    assert.doesNotMatch(file(), /carl/);
  });

  here.it("reach as far as a manager's rank", async (visitor) => {
    const page = await visitor.open("/admin/users", { as: "manager" });
    await submit(page, "Create");
    assert.deepEqual(await groups(page), ["Mount Manager", "Mount Source", "Listener"]);
    await fillAccount(page, { username: "dora", password: "x", group: "Listener" });
    await submit(page, "Create");
    await openAccount(page, "dora");
    await fillAccount(page, { group: "Mount Source" });
    await submit(page, "Save");
    await shows(rowOf(page, "dora"), "dora Mount Source");
    assert.equal(await page.getByRole("link", { name: "admin", exact: true }).count(), 0);
    await tickAnd(page, ["dora"], "Delete");
    assert.equal(await rowOf(page, "dora").count(), 0);
  });

  for (const [title, tab, element] of [["bans", "b", "banned"], ["reserved places", "v", "reserve"]])
    here.it(`stand beside ${title}`, async (visitor) => {
      const page = await visitor.open(`${USERS}?m=${tab}`, { as: "admin" });
      await shows(page.locator("table.tableView"), /^No properties are currently configured for/);
      await addProperty(page, "192.0.2.7", "IP");
      await addProperty(page, '"><b>Robot</b>', "User Agent");
      await addProperty(page, "198.51.100.3", "Subnet");
      await shows(row(page, "192.0.2.7"), "192.0.2.7 IP All Resources");
      await shows(row(page, "Robot"), '"><b>Robot</b> User Agent All Resources');
      await shows(row(page, "198.51.100.0/24"), "198.51.100.0/24 Subnet All Resources");
      assert.match(file().split(`<${element}>`)[1].split(`</${element}>`)[0], /192\.0\.2\.7/);

      await page.goto("/admin/stream/1/" + (tab === "b" ? "bans" : "reserve"));
      await addProperty(page, "192.0.2.8", "IP");
      await shows(row(page, "192.0.2.8"), "192.0.2.8 IP /demo");
      await tickAnd(page, ["192.0.2.8"], "Delete");

      await page.goto(`${USERS}?m=${tab}`);
      await page.locator("#master_select_check").check();
      await submit(page, "Delete");
      await shows(page.locator("table.tableView"), /^No properties are currently configured for/);
      assert.doesNotMatch(file(), /192\.0\.2\.7|Robot/);
    });

  here.it("offer a form for a property that may be left", async (visitor) => {
    const page = await visitor.open(`${USERS}?m=b`, { as: "admin" });
    await submit(page, "Create");
    assert.deepEqual(await page.locator('select[name="type"] option').allInnerTexts(),
      ["None", "IP", "Subnet", "User Agent", "All"]);
    await submit(page, "Cancel");
    assert.equal(await button(page, "Create").count(), 1);
    assert.equal(new URL(page.url()).search, "?m=b");
  });
});
