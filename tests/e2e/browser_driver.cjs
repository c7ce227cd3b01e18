#!/usr/bin/env node
// The "browser" of the end-to-end sign-in test: `tunevo login --browser` runs it with the sign-in
// page's address as its one argument. It signs in as a user would, in headless Chromium: opens
// the page, fills the e-mail and password form and submits it. The page answers with a redirect
// to the app's `amzn-...` scheme, which a headless browser cannot open; the driver sees it in the
// redirect response and hands it to `tunevo handle-url`, as the desktop would.
//
// Environment (set by run_signin_test.cjs):
//   APPLOGIC_E2E_TUNEVO        the tunevo program whose `handle-url` takes the redirect
//   APPLOGIC_E2E_EMAIL, APPLOGIC_E2E_PASSWORD   the account to sign in with
//   APPLOGIC_E2E_LOG           the file this driver writes its progress to (its standard streams
//                              belong to `tunevo login`)
//   APPLOGIC_E2E_BROWSER_PID   the file that receives Chromium's process id, so that the test can
//                              end it whatever happens here
//   APPLOGIC_E2E_CHROMIUM      the browser program (default /usr/bin/chromium)
//   NODE_PATH                  where playwright-core is installed
'use strict';

const fs = require('node:fs');
const { execFile } = require('node:child_process');

// Generous bounds: the test shares the machine with the rest of the suite.
const kLaunchMs = 30000;    // Chromium's start
const kStepMs = 15000;      // any one page step, the hand-in
const kOverallMs = 75000;   // everything; after it the browser is killed

const logFile = process.env.APPLOGIC_E2E_LOG;
function log(line) {
  const text = `[driver ${new Date().toISOString()}] ${line}\n`;
  if (logFile) fs.appendFileSync(logFile, text);
  else process.stderr.write(text);
}

function required(name) {
  const value = process.env[name];
  if (!value) throw new Error(`${name} is not set`);
  return value;
}

function withTimeout(promise, ms, what) {
  let timer;
  const timeout = new Promise((_, reject) => {
    timer = setTimeout(() => reject(new Error(`${what}: no answer in ${ms} ms`)), ms);
  });
  return Promise.race([promise, timeout]).finally(() => clearTimeout(timer));
}

// Chromium is started as a browser server (which knows its process) and driven over its socket.
let browserServer = null;

function killBrowser() {
  const child = browserServer && browserServer.process();
  if (child && child.exitCode === null && child.signalCode === null) child.kill('SIGKILL');
}

// Ends the driver with `status`, closing the browser first (killing it when closing hangs).
async function finish(status) {
  if (browserServer) {
    await withTimeout(browserServer.close(), 5000, 'closing the browser').catch((error) => {
      log(`${error.message}; killing it`);
      killBrowser();
    });
  }
  log(`exit ${status}`);
  process.exit(status);
}

// Runs `tunevo handle-url URL`, which gives the redirect to the waiting `tunevo login`.
function handIn(tunevo, url) {
  return new Promise((resolve, reject) => {
    execFile(tunevo, ['handle-url', url], { timeout: kStepMs }, (error, stdout, stderr) => {
      if (stdout) log(`handle-url stdout: ${stdout.trim()}`);
      if (stderr) log(`handle-url stderr: ${stderr.trim()}`);
      if (error) reject(new Error(`tunevo handle-url failed: ${error.message}`));
      else resolve();
    });
  });
}

// Resolves with the first redirect to the app's scheme. The form's POST answers 302 with
// `Location: amzn-<bundle id>://...`: that response is the browser's last network event of the
// sign-in (Chromium hands the scheme to the desktop, which a headless browser does not have).
function appRedirect(page) {
  return new Promise((resolve) => {
    const isAppUrl = (url) => /^amzn-[^:]*:/i.test(url);
    page.on('response', (response) => {
      const status = response.status();
      const location = response.headers()['location'];
      if (status >= 300 && status < 400 && location && isAppUrl(location)) resolve(location);
    });
    page.on('request', (request) => {
      if (isAppUrl(request.url())) resolve(request.url());
    });
  });
}

async function main() {
  const signInUrl = process.argv[2];
  if (!signInUrl || process.argv.length !== 3) throw new Error('usage: browser_driver.cjs SIGN-IN-URL');
  const tunevo = required('APPLOGIC_E2E_TUNEVO');
  const email = required('APPLOGIC_E2E_EMAIL');
  const password = required('APPLOGIC_E2E_PASSWORD');
  const executablePath = process.env.APPLOGIC_E2E_CHROMIUM || '/usr/bin/chromium';
  log(`sign-in page: ${signInUrl}`);

  const { chromium } = require('playwright-core');
  browserServer = await chromium.launchServer({
    executablePath,
    headless: true,
    // --no-sandbox: Chromium's sandbox refuses to run as root and needs user namespaces, which
    // containers often lack; the only page it opens is the test's own loopback server.
    chromiumSandbox: false,
    timeout: kLaunchMs,
  });
  const pidFile = process.env.APPLOGIC_E2E_BROWSER_PID;
  if (pidFile) fs.writeFileSync(pidFile, `${browserServer.process().pid}\n`);
  const browser = await chromium.connect(browserServer.wsEndpoint(), { timeout: kStepMs });
  log(`Chromium ${browser.version()} started`);

  // The sign-in server's certificate comes from a CA made for the test run.
  const context = await browser.newContext({ ignoreHTTPSErrors: true });
  const page = await context.newPage();
  page.setDefaultTimeout(kStepMs);
  page.setDefaultNavigationTimeout(kStepMs);
  const redirect = appRedirect(page);

  const opened = await page.goto(signInUrl);
  if (!opened || opened.status() !== 200) {
    throw new Error(`the sign-in page answered ${opened ? opened.status() : 'nothing'}: ${await page.content()}`);
  }
  await page.getByLabel('Email').fill(email);
  await page.getByLabel('Password').fill(password);
  log('form filled; submitting');
  await page.getByRole('button', { name: 'Sign in' }).click();

  const target = await withTimeout(redirect, kStepMs, 'the redirect to the app');
  log(`redirect to the app: ${target}`);
  await handIn(tunevo, target);
  log('redirect handed in');
}

const overall = setTimeout(() => {
  log(`gave up after ${kOverallMs} ms`);
  killBrowser();
  process.exit(3);
}, kOverallMs);
overall.unref();

for (const signal of ['SIGTERM', 'SIGINT']) {
  process.on(signal, () => {
    log(`${signal}: stopping`);
    killBrowser();
    process.exit(4);
  });
}

main().then(
  () => finish(0),
  (error) => {
    log(`failed: ${error && error.stack ? error.stack : error}`);
    return finish(1);
  },
);
