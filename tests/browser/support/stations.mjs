// Those who speak to the server beside the browser: sources and listeners.
import { spawn } from "node:child_process";
import { readFileSync } from "node:fs";
import net from "node:net";
import path from "node:path";

import { ROOT } from "./server.mjs";
import { until } from "./until.mjs";

const LOOP = path.join(ROOT, "demo/loop.mp3");
const LOOP_BYTES_A_SECOND = 96_000 / 8;
const METAINT = 4096;
const SLICE_MILLISECONDS = 100;

// The station of ./run, on the first mount.
export class DemoStation {
  constructor(server) {
    this.server = server;
  }

  async start() {
    this.process = spawn("python3", [path.join(ROOT, "demo/station.py"), "--host", "127.0.0.1", "--port",
      String(this.server.port), "--user", "source1", "--password", "hackme", LOOP], { stdio: "ignore" });
    await onAir(this.server, 1);
    await until("the first title comes", () => this.#hasTitle());
    return this;
  }

  async #hasTitle() {
    const { sources } = await (await fetch(`${this.server.origin}/status.json`)).json();
    return sources?.some((source) => source.id === 1 && source.meta_song);
  }

  async stop() {
    const ended = new Promise((resolve) => this.process.once("exit", resolve));
    this.process.kill("SIGTERM");
    await ended;
  }
}

// As often as the event log tells of a source taken.
const taken = (server) => server.read("quillwave.log").split("> Source Connected (A: ").length - 1;

const onAir = (server, count) => until("the server takes the source", () => taken(server) >= count);

// A source on any mount, whose names and titles the test chooses. It logs in as ICY sources do.
export class Source {
  constructor(server, number, { name = `Station ${number}`, genre = "Ambient", agent = "Encoder/1.0" } = {}) {
    Object.assign(this, { server, number, name, genre, agent });
    this.audio = readFileSync(LOOP);
    this.sent = 0;
    this.block = Buffer.from([0]);
  }

  async start() {
    const before = taken(this.server);
    this.socket = net.connect(this.server.port, "127.0.0.1");
    this.socket.on("error", () => {});
    this.closed = new Promise((resolve) => this.socket.once("close", resolve));
    this.socket.write(`source${this.number}:hackme\r\n`);
    const answer = await new Promise((resolve, reject) => {
      this.socket.once("data", resolve);
      this.socket.once("close", () => reject(new Error("the server closed")));
    });
    if (!answer.toString().startsWith("OK")) throw new Error(`the server refuses the source: ${answer}`);
    this.socket.write(["content-type:audio/mpeg", `icy-name:${this.name}`, `icy-genre:${this.genre}`, "icy-pub:0",
      "icy-br:96", `icy-metaint:${METAINT}`, `User-Agent:${this.agent}`, "", ""].join("\r\n"));
    this.timer = setInterval(() => this.#send(LOOP_BYTES_A_SECOND * SLICE_MILLISECONDS / 1000), SLICE_MILLISECONDS);
    this.#send(METAINT * 4); // enough to be recognised at once
    await onAir(this.server, before + 1);
    return this;
  }

  // The title goes out with the next metadata block.
  title(words) {
    const text = Buffer.from(`StreamTitle='${words}';StreamUrl='';`);
    const units = Math.floor(text.length / 16) + 1;
    this.block = Buffer.concat([Buffer.from([units]), text, Buffer.alloc(units * 16 - text.length)]);
    return this;
  }

  // Until the title has gone out.
  told() {
    return until("the title goes out", () => this.block.length === 1);
  }

  // A new title every half second.
  changing() {
    let count = 0;
    this.beat = setInterval(() => this.title(`Title ${++count}`), 500);
    return this;
  }

  #send(count) {
    while (count > 0) {
      const piece = Math.min(count, METAINT - (this.sent % METAINT));
      this.socket.write(this.#audio(piece));
      this.sent += piece;
      count -= piece;
      if (this.sent % METAINT === 0) {
        this.socket.write(this.block);
        this.block = Buffer.from([0]);
      }
    }
  }

  #audio(count) {
    const at = this.sent % this.audio.length;
    const piece = this.audio.subarray(at, at + count);
    return piece.length === count ? piece : Buffer.concat([piece, this.audio.subarray(0, count - piece.length)]);
  }

  async stop() {
    clearInterval(this.timer);
    clearInterval(this.beat);
    this.socket.destroy();
    await this.closed;
  }
}

// A player that takes what it is given, from any address of this machine. One that is not `patient` takes a refusal
// for an answer, too.
export class Listener {
  constructor(server, address, { agent = "Player/1.0", authorization, from, query = "", patient = true } = {}) {
    Object.assign(this, { server, patient, from, bytes: 0, head: "" });
    const login = authorization ? [`Authorization: Basic ${Buffer.from(authorization).toString("base64")}`] : [];
    this.request = [`GET ${address}${query} HTTP/1.0`, `User-Agent: ${agent}`, ...login, "", ""].join("\r\n");
  }

  async start() {
    this.socket = net.connect({ port: this.server.port, host: "127.0.0.1", localAddress: this.from });
    this.socket.on("error", () => {});
    this.socket.on("data", (data) => this.#take(data));
    this.closed = new Promise((resolve) => this.socket.once("close", () => { this.gone = true; resolve(); }));
    this.socket.write(this.request);
    await until("the listener is answered", () => (this.patient ? this.bytes > 1000 : this.head.includes("\r\n") || this.gone));
    return this;
  }

  #take(data) {
    this.bytes += data.length;
    if (this.head.length < 1000) this.head += data.toString("latin1");
  }

  async stop() {
    this.socket.destroy();
    await this.closed;
  }
}
