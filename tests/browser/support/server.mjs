// The program under test, in a directory of its own.
import { spawn } from "node:child_process";
import { mkdtempSync, readFileSync, readdirSync, rmSync, writeFileSync } from "node:fs";
import net from "node:net";
import os from "node:os";
import path from "node:path";
import { fileURLToPath } from "node:url";

import { until } from "./until.mjs";

export const ROOT = fileURLToPath(new URL("../../../", import.meta.url));
const BINARY = path.resolve(process.env.QUILLWAVE_BIN ?? path.join(ROOT, "build/dev/quillwave"));
const SANITIZERS = {
  ASAN_OPTIONS: "detect_leaks=1:exitcode=86",
  UBSAN_OPTIONS: "print_stacktrace=1:halt_on_error=1:exitcode=86",
  TSAN_OPTIONS: "exitcode=66",
};

const STOP_MILLISECONDS = 60_000;

// Pairs of ports below those that the system gives to outgoing connections.
const FIRST_PORT = 32000;
const PORT_PAIRS = 380;
let nextPair = process.pid * 7;

function isFree(port) {
  return new Promise((resolve) => {
    const probe = net.createServer();
    probe.once("error", () => resolve(false));
    probe.listen(port, () => probe.close(() => resolve(true)));
  });
}

async function freePair() {
  for (let tries = 0; tries < PORT_PAIRS; tries++) {
    const first = FIRST_PORT + (nextPair++ % PORT_PAIRS) * 2;
    if ((await isFree(first)) && (await isFree(first + 1))) return first;
  }
  throw new Error("all ports are taken");
}

export const ACCOUNTS = {
  admin: { username: "admin", password: "hackme" },
  // Manage the mounts that stand beside them, by number.
  manager: { username: "manager", password: "hackme", group: "Mount Manager", mounts: [1] },
  keeper: { username: "keeper", password: "hackme", group: "Mount Manager", mounts: [1, 2] },
  listener: { username: "listener", password: "hackme", group: "Listener", mounts: [-1] },
};

function userFile() {
  const property = (mount) => `<property mount="${mount}"><filter type="All">*</filter></property>`;
  const accounts = Object.values(ACCOUNTS)
    .filter((account) => account.group)
    .map(({ username, password, group, mounts }) =>
      `<user><username>${username}</username><password encryption="None">${password}</password>` +
      `<usergroup>${group}</usergroup><properties>${mounts.map(property).join("")}</properties></user>`);
  return `<userlist version="1.0"><users>${accounts.join("")}</users></userlist>`;
}

// `mounts` are addresses, numbered from 1; the source of each is "source1", "source2" ... with "hackme".
// `settings` are more lines of the settings file.
export class Server {
  constructor({ mounts = ["/demo"], settings = [] } = {}) {
    this.mounts = mounts;
    this.settings = settings;
    this.directory = mkdtempSync(path.join(os.tmpdir(), "quillwave-browser-"));
  }

  get origin() {
    return `http://127.0.0.1:${this.port}`;
  }

  read(name) {
    try {
      return readFileSync(path.join(this.directory, name), "utf8");
    } catch {
      return "";
    }
  }

  #settingsText() {
    const mounts = this.mounts.flatMap((address, i) => [
      `SourceMount${i + 1}=${address}`, `SourceUser${i + 1}=source${i + 1}`, `SourcePass${i + 1}=hackme`]);
    return [`PortBase=${this.port}`, `SCSourcePort=${this.port + 1}`, "ServIP=127.0.0.1", "RealtimeLog=no",
      "AdminUser=admin", "AdminPass=hackme", ...mounts, ...this.settings, ""].join("\n");
  }

  async start() {
    this.port = await freePair();
    writeFileSync(path.join(this.directory, "quillwave.conf"), this.#settingsText());
    writeFileSync(path.join(this.directory, "quillwave-users.xml"), userFile());
    const environment = { ...process.env };
    for (const [name, options] of Object.entries(SANITIZERS))
      environment[name] = `${process.env[name] ?? options}:log_path=${path.join(this.directory, "sanitizer")}`;
    this.process = spawn(BINARY, ["quillwave.conf"], { cwd: this.directory, env: environment, stdio: "ignore" });
    this.ended = new Promise((resolve, reject) => {
      this.process.once("error", reject);
      this.process.once("exit", (code, signal) => resolve(signal ?? code));
    });
    this.ended.catch(() => {});
    await until("the server accepts connections", () => this.#accepts());
  }

  #accepts() {
    if (this.process.exitCode !== null) throw new Error(`the server ended with ${this.process.exitCode}`);
    return new Promise((resolve) => {
      const probe = net.connect(this.port, "127.0.0.1");
      probe.once("error", () => resolve(false));
      probe.once("connect", () => { probe.destroy(); resolve(true); });
    });
  }

  // Ends it as an operator would; throws when it does not end, has died, leaked or misbehaved.
  async stop() {
    this.process.kill("SIGTERM");
    const impatience = setTimeout(() => this.process.kill("SIGKILL"), STOP_MILLISECONDS);
    const status = await this.ended;
    clearTimeout(impatience);
    const reports = readdirSync(this.directory).filter((name) => name.startsWith("sanitizer"));
    const findings = reports.map((name) => this.read(name)).join("\n");
    const log = this.read("quillwave.log");
    rmSync(this.directory, { recursive: true, force: true });
    if (status !== 0 || findings) throw new Error(`the server ended with ${status}\n${findings}\n${log.slice(-4000)}`);
  }
}
