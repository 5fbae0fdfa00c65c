// What the other tests rest on: libraries come from packages, and nothing leaves the machine.
import assert from "node:assert/strict";

import { site } from "./support/site.mjs";

const PAGE = `<!DOCTYPE html><title>Test</title><link rel="icon" href="data:,">
<script src="http://library.example/ajax/libs/swfobject/2.2/swfobject.js"></script>
<script src="http://library.example/ajax/libs/jquery/1.11.1/jquery.min.js"></script>`;
const LEAVING = '<!DOCTYPE html><link rel="icon" href="data:,"><img src="http://elsewhere.example/picture.png">';

site("the closed network", {}, async () => {}, (here) => {
  here.it("gives pages the public libraries", async (visitor) => {
    const page = await visitor.open("/test.html", { pages: { "/test.html": PAGE } });
    assert.equal(await page.evaluate("jQuery.fn.jquery"), "1.11.1");
    assert.equal(await page.evaluate("typeof swfobject.embedSWF"), "function");
  });

  here.it("refuses every other host, and tells", async (visitor) => {
    await visitor.open("/test.html", { pages: { "/test.html": LEAVING } });
    visitor.expectFault(/a request left the server: http:\/\/elsewhere\.example\/picture\.png/);
    visitor.expectFault(/console: .*ERR_FAILED .*elsewhere/);
  });
});
