// The forms that change settings: with effect at once, and in the file some seconds later.
import assert from "node:assert/strict";

import { button, field, row, shows, submit } from "./support/forms.mjs";
import { site } from "./support/site.mjs";
import { until } from "./support/until.mjs";

const input = (page, label) => field(page, label).locator("input");
const offered = (page) => page.locator("#newVariableName option").allInnerTexts();

async function addRow(page, key) {
  if (!(await page.locator("#newVariableName").isVisible())) await button(page, "Add Entry").click();
  await page.locator("#newVariableName").selectOption(key);
  await button(page, "Add Field").click();
}

async function addSetting(page, key, value) {
  await addRow(page, key);
  await input(page, key).fill(value);
  await button(page, "Done").click();
  await submit(page, "Save");
}

const arrange = (here) => here.demoStation();

site("the settings", { mounts: ["/demo", "/second"], settings: ["Note=kept by hand"] }, arrange, (here) => {
  const written = (line) => until(`the settings file holds ${line}`, () =>
    here.server.read("quillwave.conf").split(/\r?\n/).includes(line));
  const erased = (key) => until(`the settings file has lost ${key}`, () =>
    !here.server.read("quillwave.conf").includes(key));

  here.it("of a stream take effect at once, and are written", async (visitor) => {
    const page = await visitor.open("/admin/stream/1/configure", { as: "admin" });
    await shows(page.locator("#configForm .tableViewHead"), "Configuration for demo");
    await addSetting(page, "UserMax", "5");
    assert.equal(await input(page, "UserMax").inputValue(), "5");
    await button(page, "Add Entry").click();
    assert.ok(!(await offered(page)).includes("UserMax"), "a key is there but once");
    assert.ok((await offered(page)).includes("Directory"), "except some");
    await page.goto("/admin/stream/1/");
    await shows(field(page, "Listeners:"), "0 of 5 (0 Unique)");
    await written("SourceUserMax1=5");
  });

  here.it("of a stream fall back on the defaults when they are emptied", async (visitor) => {
    const page = await visitor.open("/admin/configure_defaults", { as: "admin" });
    await shows(page.locator("#configForm .tableViewHead"), "Configuration for Default");
    await addSetting(page, "UserMax", "7");
    await page.goto("/admin/stream/2/");
    await shows(field(page, "Listeners:"), "0 of 7 (0 Unique)");
    await page.goto("/admin/stream/1/");
    await shows(field(page, "Listeners:"), "0 of 5 (0 Unique)");

    await page.goto("/admin/stream/1/configure");
    await input(page, "UserMax").fill("");
    await submit(page, "Save");
    assert.equal(await input(page, "UserMax").count(), 0);
    await page.goto("/admin/stream/1/");
    await shows(field(page, "Listeners:"), "0 of 7 (0 Unique)");
  });

  here.it("of the server are edited", async (visitor) => {
    const page = await visitor.open("/admin/configure", { as: "admin" });
    await shows(page.locator("#configForm .tableViewHead"), "Server Configuration");
    assert.equal(await input(page, "Note").inputValue(), "kept by hand");
    for (const hidden of ["AdminUser", "AdminPass", "Source", "Default"])
      assert.equal(await input(page, hidden).count(), 0, hidden);
    await addSetting(page, "Hostname", 'radio"><script>alert(1)</script>');
    assert.equal(await input(page, "Hostname").inputValue(), 'radio"><script>alert(1)</script>');
    await input(page, "Hostname").fill("radio.example");
    await submit(page, "Save");
    assert.deepEqual(visitor.dialogs, []);
  });

  here.it("are saved once only", async (visitor) => {
    const page = await visitor.open("/admin/configure", { as: "admin" });
    await addSetting(page, "YPLog", "yes");
    await submit(page, "Save");
    await submit(page, "Save");
    assert.equal(await input(page, "YPLog").count(), 1);
  });

  here.it("want a key, and are not added without a value", async (visitor) => {
    const page = await visitor.open("/admin/stream/2/configure", { as: "admin" });
    await addRow(page, "0");
    assert.deepEqual(visitor.dialogs, ["You must select a key from the combo box!"]);
    await addRow(page, "Note");
    await addRow(page, "NameFormat");
    await input(page, "NameFormat").fill("Evening");
    await button(page, "Done").click();
    await submit(page, "Save");
    assert.equal(await input(page, "NameFormat").inputValue(), "Evening");
    assert.equal(await row(page, "Note").count(), 0);
  });

  here.it("of his stream are in the hands of its manager", async (visitor) => {
    const page = await visitor.open("/admin/configure", { as: "manager" });
    await shows(page.locator("#configForm .tableViewHead"), "Configuration for demo");
    await addSetting(page, "ShowLastSongs", "3");
  });

  here.it("are all in the file in the end", async () => {
    for (const line of ["DefaultUserMax=7", "Hostname=radio.example", "SourceNameFormat2=Evening", "SourceShowLastSongs1=3"])
      await written(line);
    await erased("SourceUserMax1");
    await written("Note=kept by hand");
  });
});
