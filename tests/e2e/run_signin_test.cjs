// The end-to-end sign-in: `tunevo login` against the local sign-in server, with headless Chromium
// as the browser (browser_driver.cjs), the redirect coming back through `tunevo handle-url`.
//
// usage: node run_signin_test.cjs TUNEVO
//
// Everything lives in a fresh directory: the server's CA, an issuer key pair made here, the app
// manifest with an API key minted by `tunevo apikey mint`, the token store, and XDG_RUNTIME_DIR
// (the redirect socket), so that runs never meet each other or a desktop session. Every wait is
// bounded; the server, `tunevo login`, the driver and Chromium are ended whatever happens.
'use strict';

const assert = require('node:assert/strict');
const crypto = require('node:crypto');
const fs = require('node:fs');
const https = require('node:https');
const os = require('node:os');
const path = require('node:path');
const { spawn, execFile } = require('node:child_process');

const kBundleId = 'com.tunevo.e2e';
const kClientId = 'amzn1.application-oa2-client.e2e';
const kEmail = 'listener@tunevo.test';
const kPassword = 'e2e-password';
const kUserId = 'tunevo.account.TESTLISTENER1';
const kStartMs = 15000;
const kLoginSeconds = 60;  // tunevo login's own wait for the redirect
const kLoginMs = 90000;
const kCommandMs = 30000;

const tunevo = process.argv[2];
if (!tunevo || !fs.existsSync(tunevo)) {
  console.error('usage: node run_signin_test.cjs TUNEVO');
  process.exit(64);
}
const driver = path.join(__dirname, 'browser_driver.cjs');

const work = fs.mkdtempSync(path.join(os.tmpdir(), 'applogic-e2e-'));
// Short: the redirect socket's path (…/tunevo/redirect.sock) must fit a UNIX socket address.
const runtimeDir = path.join(work, 'rt');
fs.mkdirSync(runtimeDir, { mode: 0o700 });
const file = (name) => path.join(work, name);

const env = {
  ...process.env,
  XDG_RUNTIME_DIR: runtimeDir,
  // Chromium's throw-away profile goes here too, so even a killed browser leaves nothing behind.
  TMPDIR: work,
  PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD: '1',
  APPLOGIC_E2E_TUNEVO: tunevo,
  APPLOGIC_E2E_EMAIL: kEmail,
  APPLOGIC_E2E_PASSWORD: kPassword,
  APPLOGIC_E2E_LOG: file('driver.log'),
  APPLOGIC_E2E_BROWSER_PID: file('chromium.pid'),
};

const children = [];

function step(line) {
  console.log(`e2e: ${line}`);
}

// Runs a tunevo command to its end (bounded); resolves with its status and output.
function run(args) {
  return new Promise((resolve) => {
    execFile(tunevo, args, { env, timeout: kCommandMs, killSignal: 'SIGKILL' }, (error, stdout, stderr) => {
      const status = error ? (typeof error.code === 'number' ? error.code : `${error.signal || error.code}`) : 0;
      resolve({ status, stdout, stderr });
    });
  });
}

function checkedRun(args) {
  return run(args).then((result) => {
    assert.equal(result.status, 0, `tunevo ${args[0]} failed:\n${result.stdout}${result.stderr}`);
    return result.stdout;
  });
}

// Starts `tunevo emulator signin` and resolves with its base URL once its banner is complete.
function startServer() {
  const server = spawn(tunevo, ['emulator', 'signin', '--ca-out', file('ca.pem'), '--bundle-id', kBundleId,
    '--account', `${kEmail}:${kPassword}`], { env, stdio: ['ignore', 'pipe', 'pipe'] });
  children.push({ name: 'sign-in server', child: server, group: false });
  let out = '';
  let err = '';
  return new Promise((resolve, reject) => {
    const timer = setTimeout(() => reject(new Error(`the sign-in server did not start in ${kStartMs} ms:\n${out}${err}`)),
      kStartMs);
    server.stderr.on('data', (data) => { err += data; });
    server.stdout.on('data', (data) => {
      out += data;
      if (!out.includes('Ctrl-C stops the server.\n')) return;
      clearTimeout(timer);
      const base = /^sign-in server: (\S+)$/m.exec(out);
      if (base) resolve(base[1]);
      else reject(new Error(`no base URL in:\n${out}`));
    });
    server.on('exit', (status, signal) => {
      clearTimeout(timer);
      reject(new Error(`the sign-in server ended (${status ?? signal}):\n${out}${err}`));
    });
  });
}

// The requests the server received, from its control address.
function serverRequests(base) {
  return new Promise((resolve, reject) => {
    const request = https.get(`${base}/__control/requests`, { ca: fs.readFileSync(file('ca.pem')), timeout: kStartMs },
      (response) => {
        let body = '';
        response.on('data', (data) => { body += data; });
        response.on('end', () => {
          try {
            resolve(JSON.parse(body));
          } catch (error) {
            reject(new Error(`the request log is not JSON: ${body}`));
          }
        });
      });
    request.on('timeout', () => request.destroy(new Error('the request log did not come')));
    request.on('error', reject);
  });
}

// Runs `tunevo login` (its own process group: the driver and what it starts go with it) until it
// exits, and resolves with its status; its output goes to files, since the driver inherits them.
// A driver that fails ends the wait at once: login would only wait for its own timeout.
function login(args) {
  const out = fs.openSync(file('login.out'), 'w');
  const err = fs.openSync(file('login.err'), 'w');
  const child = spawn(tunevo, ['login', ...args], { env, stdio: ['ignore', out, err], detached: true });
  fs.closeSync(out);
  fs.closeSync(err);
  children.push({ name: 'tunevo login', child, group: true });
  return new Promise((resolve, reject) => {
    const timer = setTimeout(() => reject(new Error(`tunevo login did not end in ${kLoginMs} ms`)), kLoginMs);
    const driverWatch = setInterval(() => {
      const failed = /\] exit ([1-9]\d*)$/m.exec(readIfThere('driver.log'));
      if (!failed) return;
      clearTimeout(timer);
      clearInterval(driverWatch);
      reject(new Error(`the browser driver failed (exit ${failed[1]}) while tunevo login waited`));
    }, 100);
    child.on('exit', (status, signal) => {
      clearTimeout(timer);
      clearInterval(driverWatch);
      resolve(status ?? signal);
    });
  });
}

// Polls `condition` every 50 ms; false when it did not hold within `ms`.
async function waitFor(condition, ms) {
  for (const end = Date.now() + ms; Date.now() < end;) {
    if (condition()) return true;
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
  return condition();
}

function readIfThere(name) {
  try {
    return fs.readFileSync(file(name), 'utf8');
  } catch {
    return '';
  }
}

function signal(target, name) {
  try {
    process.kill(target, name);
    return true;
  } catch {
    return false;  // ended already
  }
}

// Kills whatever still runs: `tunevo login` with its process group (the driver), Chromium with its
// own group (Playwright starts it detached), the server; then waits, bounded, until they are gone,
// so that nothing writes into the directory while it is removed.
async function stopEverything() {
  const targets = [];
  for (const { child, group } of children) {
    if (group) targets.push(-child.pid);
    else if (child.exitCode === null && child.signalCode === null) targets.push(child.pid);
  }
  const chromiumPid = Number.parseInt(readIfThere('chromium.pid'), 10);
  if (chromiumPid > 0) targets.push(-chromiumPid);
  const running = targets.filter((target) => signal(target, 'SIGKILL'));
  await waitFor(() => running.every((target) => !signal(target, 0)), kStartMs);
}

async function main() {
  const started = Date.now();
  const base = await startServer();
  step(`sign-in server at ${base}`);

  const { publicKey, privateKey } = crypto.generateKeyPairSync('rsa', {
    modulusLength: 2048,
    publicKeyEncoding: { type: 'spki', format: 'pem' },
    privateKeyEncoding: { type: 'pkcs8', format: 'pem' },
  });
  fs.writeFileSync(file('issuer.key'), privateKey, { mode: 0o600 });
  fs.writeFileSync(file('issuer.pub'), publicKey);
  const apiKey = (await checkedRun(['apikey', 'mint', '--private-key', file('issuer.key'), '--bundle-id', kBundleId,
    '--client-id', kClientId, '--authz', `${base}/ap/oa`, '--token-exchange', `${base}/auth/o2/token`])).trim();
  fs.writeFileSync(file('app-manifest.json'), JSON.stringify({
    CFBundleIdentifier: kBundleId,
    APIKey: apiKey,
    CFBundleURLTypes: [{ CFBundleURLSchemes: [`amzn-${kBundleId}`] }],
  }));

  const common = ['--manifest', file('app-manifest.json'), '--public-key', file('issuer.pub'), '--profile-endpoint',
    `${base}/user/profile`, '--ca-file', file('ca.pem'), '--store', file('tokens.sqlite')];
  step('tunevo login, with headless Chromium as the browser');
  const status = await login(['--browser', driver, '--timeout', `${kLoginSeconds}`, ...common]);
  const out = readIfThere('login.out');
  if (status !== 0) throw new Error(`tunevo login exited ${status}`);
  const lines = out.split('\n');
  assert.ok(lines.includes(`email: ${kEmail}`), `tunevo login did not print the e-mail:\n${out}`);
  assert.ok(lines.includes(`user id: ${kUserId}`), `tunevo login did not print the user id:\n${out}`);
  const masked = /^access token: (\S{6})\u2026$/m.exec(out);
  assert.ok(masked, `tunevo login did not print the access token masked to 6 characters:\n${out}`);
  step(`signed in:\n${out.trimEnd()}`);
  // The driver closes Chromium after the hand-in; `tunevo login` may finish before it does.
  const driverEnded = await waitFor(() => /\] exit \d+$/m.test(readIfThere('driver.log')), kStartMs);
  assert.ok(driverEnded && /\] exit 0$/m.test(readIfThere('driver.log')), 'the browser driver did not end well');

  const requests = await serverRequests(base);
  const paths = requests.map((request) => `${request.method} ${request.path}`);
  assert.ok(paths.includes('POST /ap/oa'), `the browser did not submit the sign-in form: ${paths.join(', ')}`);

  // The access token that login stored, still valid: served from the store.
  const token = (await checkedRun(['token', ...common])).trim();
  assert.ok(token.startsWith(masked[1]), `tunevo token printed another token than login's: ${token}`);
  step(`tunevo token from the same store: ${masked[1]}\u2026`);
  step(`passed in ${Date.now() - started} ms`);
}

// Interrupted (Ctrl-C in ctest, or its timeout): the detached groups would outlive the test.
for (const name of ['SIGINT', 'SIGTERM']) {
  process.on(name, () => {
    console.error(`e2e: ${name}: stopping`);
    stopEverything().finally(() => {
      fs.rmSync(work, { recursive: true, force: true, maxRetries: 5 });
      process.exit(1);
    });
  });
}

let failed = false;
main()
  .catch((error) => {
    failed = true;
    console.error(`e2e: FAILED: ${error && error.message ? error.message : error}`);
    for (const name of ['login.out', 'login.err', 'driver.log']) {
      const text = readIfThere(name);
      if (text) console.error(`---- ${name}\n${text.trimEnd()}`);
    }
  })
  .finally(async () => {
    await stopEverything();
    try {
      fs.rmSync(work, { recursive: true, force: true, maxRetries: 5 });
    } catch (error) {
      console.error(`e2e: warning: ${error.message}`);
    }
    process.exit(failed ? 1 : 0);
  });
