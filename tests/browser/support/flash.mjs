// A Flash player that needs no plug-in, and ears for what it plays.
import { readFileSync } from "node:fs";
import { createRequire } from "node:module";

import { pause, until } from "./until.mjs";

const SETTINGS = { publicPath: "/ruffle/", autoplay: "on", unmuteOverlay: "hidden", preferredRenderer: "canvas",
  allowScriptAccess: true, logLevel: "error" };
const PLAYER = readFileSync(createRequire(import.meta.url).resolve("@ruffle-rs/ruffle/ruffle.js"), "utf8");

// Counts the pieces of sound that are not silence. The browser's own elements are not among them.
function countSounds() {
  window.sounds = 0;
  const start = AudioBufferSourceNode.prototype.start;
  AudioBufferSourceNode.prototype.start = function (...when) {
    const samples = this.buffer ? this.buffer.getChannelData(0) : [];
    if (samples.some((sample) => Math.abs(sample) > 0.001)) window.sounds++;
    return start.apply(this, when);
  };
}

// A script for the beginning of a page: the browser then has a Flash player.
export const FLASH = `(${countSounds})();\nwindow.RufflePlayer = { config: ${JSON.stringify(SETTINGS)} };\n${PLAYER}`;

export const sounds = (page) => until("there is sound", () => page.evaluate("window.sounds > 3"));

export const fallsSilent = (page) => until("there is no new sound", async () => {
  const before = await page.evaluate("window.sounds");
  await pause(1000);
  return before === await page.evaluate("window.sounds");
});
