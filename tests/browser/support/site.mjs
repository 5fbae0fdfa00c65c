// A running server with a browser in front of it, and the tests that look at it.
import assert from "node:assert/strict";
import { mkdirSync, writeFileSync } from "node:fs";
import path from "node:path";
import { after, before, describe, test } from "node:test";

import { chromium } from "playwright-core";

import { closeNetwork } from "./network.mjs";
import { ACCOUNTS, ROOT, Server } from "./server.mjs";
import { DemoStation, Listener, Source } from "./stations.mjs";

const PICTURES = path.join(ROOT, "build/browser");
export const WIDE = { width: 1280, height: 800 };
export const NARROW = { width: 400, height: 800 };
const TEST_SECONDS = 60;

const CHROMIUM = {
  executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
  args: ["--no-sandbox", "--no-proxy-server", "--disable-background-networking",
    "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1"],
};

// describe() with a server and a browser of its own. `arrange` puts sources and listeners on the air.
export function site(title, options, arrange, tests) {
  describe(title, () => {
    const here = new Site(options);
    before(async () => { await here.open(); await arrange(here); });
    after(() => here.close());
    tests(here);
  });
}

class Site {
  constructor(options) {
    this.server = new Server(options);
    this.parties = [];
  }

  async open() {
    await this.server.start();
    this.browser = await chromium.launch(CHROMIUM);
  }

  async close() {
    await this.browser?.close();
    for (const party of this.parties) await party.stop();
    await this.server.stop();
  }

  async #join(party) {
    this.parties.push(party);
    return await party.start();
  }

  demoStation() { return this.#join(new DemoStation(this.server)); }
  source(number, options) { return this.#join(new Source(this.server, number, options)); }
  listener(address, options) { return this.#join(new Listener(this.server, address, options)); }

  async leave(party) {
    this.parties = this.parties.filter((other) => other !== party);
    await party.stop();
  }

  // One test: `act` is given a Visitor. Whatever the pages complained of on the way fails it, too. Sources and
  // listeners that it has called leave with it.
  it(name, act) {
    test(name, { timeout: TEST_SECONDS * 1000 }, async () => {
      const visitor = new Visitor(this);
      const residents = [...this.parties];
      try {
        await act(visitor);
        assert.deepEqual(visitor.faults, []);
      } catch (fault) {
        await visitor.photograph(`failed ${name}`).catch(() => {});
        fault.message += `\nat ${visitor.address()}\n${visitor.faults.join("\n")}`;
        throw fault;
      } finally {
        await visitor.leave();
        for (const party of this.parties.filter((one) => !residents.includes(one))) await this.leave(party);
      }
    });
  }
}

// Someone with a browser window, or several, each with cookies and a login of its own.
class Visitor {
  constructor(here) {
    Object.assign(this, { site: here, faults: [], dialogs: [], contexts: [], page: null });
  }

  // A new window at `address`. `as` is a name of ACCOUNTS, nobody without; `pages` are pages of the test's own, `script`
  // runs before any of the page's, and `patience` says how far the page must have come.
  async open(address, { as, size = WIDE, pages, script, patience = "load" } = {}) {
    const { origin } = this.site.server;
    const context = await this.site.browser.newContext({
      baseURL: origin, viewport: size, httpCredentials: as && { ...ACCOUNTS[as], origin } });
    this.contexts.push(context);
    await closeNetwork(context, origin, this.faults, pages);
    if (script) await context.addInitScript(script);
    this.page = await context.newPage();
    this.#watch(this.page);
    await this.page.goto(address, { waitUntil: patience });
    return this.page;
  }

  #watch(page) {
    page.on("console", (message) => {
      if (message.type() === "error") this.faults.push(`console: ${message.text()} (${message.location().url})`);
    });
    page.on("pageerror", (error) => this.faults.push(`script: ${error.stack}`));
    page.on("dialog", async (dialog) => {
      this.dialogs.push(dialog.message());
      await dialog.accept();
    });
  }

  // Takes out the faults that the test expects, which must be there.
  expectFault(pattern) {
    const before = this.faults.length;
    this.tolerate(pattern);
    assert.notEqual(this.faults.length, before, `no complaint like ${pattern}: ${this.faults}`);
  }

  // Takes out what the browser may complain of, or not.
  tolerate(pattern) {
    this.faults.splice(0, this.faults.length, ...this.faults.filter((fault) => !pattern.test(fault)));
  }

  address() {
    return this.page?.url() ?? "no page";
  }

  // By the browser's own protocol: Playwright would wait for the end of the page, and the log has none.
  async photograph(name) {
    if (!this.page) return;
    mkdirSync(PICTURES, { recursive: true });
    const session = await this.page.context().newCDPSession(this.page);
    const { cssContentSize: { width, height } } = await session.send("Page.getLayoutMetrics");
    const { data } = await session.send("Page.captureScreenshot",
      { captureBeyondViewport: true, clip: { x: 0, y: 0, width, height, scale: 1 } });
    writeFileSync(path.join(PICTURES, `${name.replace(/[^\w.]+/g, "-")}.png`), data, "base64");
  }

  async leave() {
    for (const context of this.contexts) await context.close();
  }
}
