// A network that ends at the server under test. What pages take from public libraries comes from npm packages;
// everything else is refused, and is a fault of the test that caused it.
import { readFileSync } from "node:fs";
import { createRequire } from "node:module";
import path from "node:path";

const require = createRequire(import.meta.url);
const packageFile = (name, file) => path.join(path.dirname(require.resolve(`${name}/package.json`)), file);
const text = (name, file) => readFileSync(packageFile(name, file), "utf8");

// The package is for programs that load modules; a browser needs the name, and no sign of modules for jQuery to see.
const swfobject = () =>
  `window.swfobject = (function (module) {\n${text("swfobject", "index.js")}\nreturn module.exports; })({});`;

const LIBRARIES = [
  [/\/jquery\/1\.11\.1\/jquery(\.min)?\.js$/, () => text("jquery", "dist/jquery.min.js")],
  [/\/swfobject\/2\.2\/swfobject\.js$/, swfobject],
];

const RUFFLE = "/ruffle/";
const TYPES = { ".js": "text/javascript", ".wasm": "application/wasm", ".html": "text/html; charset=UTF-8" };
const typeOf = (name) => TYPES[path.extname(name)] ?? "application/octet-stream";

// `pages` are documents of the test's own, by path; they lie beside the server's, and so does the Flash player.
export async function closeNetwork(context, origin, faults, pages = {}) {
  await context.route("**/*", async (route) => {
    const url = new URL(route.request().url());
    if (url.origin === origin) return await answerLocally(route, url.pathname, pages);
    const library = LIBRARIES.find(([pattern]) => pattern.test(url.pathname));
    if (library) return await route.fulfill({ contentType: "text/javascript", body: library[1]() });
    faults.push(`a request left the server: ${url.href}`);
    return await route.abort();
  });
}

async function answerLocally(route, pathname, pages) {
  if (pages[pathname]) return await route.fulfill({ contentType: TYPES[".html"], body: pages[pathname] });
  if (!pathname.startsWith(RUFFLE)) return await route.continue();
  const name = path.basename(pathname);
  return await route.fulfill({ contentType: typeOf(name), body: readFileSync(packageFile("@ruffle-rs/ruffle", name)) });
}
