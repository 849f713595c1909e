// The web sign-in in a real browser: a development server that requires a
// proof key (PKCE), the tool waiting for the redirect, and headless Chromium
// filling in the form, a wrong password first. Screenshots of the sign-in
// page, its error message and the tool's closing page are left in the work
// directory for people to look at.
// Arguments: the velmor-auth binary, the Chromium binary, a work directory
// holding node_modules/playwright-core.
import { execFile, spawn } from 'node:child_process';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import readline from 'node:readline';

const [tool, chromiumPath, work] = process.argv.slice(2);
const require = createRequire(path.join(path.resolve(work), 'package.json'));
const { chromium } = require('playwright-core');

const home = fs.mkdtempSync(path.join(path.resolve(work), 'home-'));
const env = {
  ...process.env,
  HOME: home,
  XDG_CONFIG_HOME: path.join(home, 'config'),
  XDG_DATA_HOME: path.join(home, 'data'),
  VELMOR_SECRET_STORE: 'file',
  VELMOR_SECRET_STORE_DIR: path.join(home, 'keychain'),
  no_proxy: '*',
};
delete env.DBUS_SESSION_BUS_ADDRESS;
delete env.VELMOR_SERVER;
delete env.VELMOR_APP_TOKEN;

// Generous: a loaded CI machine may be slow, and nothing here waits on a
// fixed delay.
const kPatience = 120_000;

function fail(message) {
  throw new Error(message);
}

// The first line of the child's standard output that `accept` takes.
function lineFrom(child, accept, what) {
  return new Promise((resolve, reject) => {
    const lines = readline.createInterface({ input: child.stdout });
    const timer = setTimeout(() => reject(new Error(`no ${what} within ${kPatience} ms`)), kPatience);
    lines.on('line', (line) => {
      if (!accept(line)) return;
      clearTimeout(timer);
      lines.close();
      resolve(line);
    });
    child.on('exit', (code) => reject(new Error(`${what}: velmor-auth exited with ${code}`)));
  });
}

function exitOf(child) {
  return new Promise((resolve) => {
    if (child.exitCode !== null) resolve(child.exitCode);
    else child.on('exit', (code) => resolve(code));
  });
}

function runTool(args) {
  return new Promise((resolve) => {
    execFile(tool, args, { env, timeout: kPatience }, (error, stdout, stderr) => {
      resolve({ code: error ? error.code : 0, stdout, stderr });
    });
  });
}

async function main() {
  const server = spawn(tool, ['serve', '--port', '0', '--dir', path.join(home, 'devserver'),
                              '--require-pkce', '--json'],
                       { env, stdio: ['ignore', 'pipe', 'inherit'] });
  let browser;
  try {
    const announced = JSON.parse(await lineFrom(server, () => true, 'server announcement'));
    const common = ['--server', announced.baseUrl, '--ca-file', announced.caFile];
    const activated = await runTool([...common, 'activate', '--json']);
    if (activated.code !== 0) fail(`activate failed: ${activated.stderr}`);

    const signIn = spawn(tool, [...common, 'web-sign-in', '--no-browser', '--timeout', '300'],
                         { env, stdio: ['ignore', 'pipe', 'inherit'] });
    const signedIn = exitOf(signIn);
    const url = await lineFrom(signIn, (line) => line.startsWith('https://'), 'sign-in URL');
    console.log(`browser-test: opening ${url.replace(/state=[^&]*/, 'state=...')}`);
    if (!/&code_challenge=[A-Za-z0-9_-]{43}&code_challenge_method=S256$/.test(url)) {
      fail('the sign-in URL carries no S256 code challenge');
    }

    browser = await chromium.launch({ executablePath: chromiumPath, headless: true,
                                      args: ['--no-sandbox'], timeout: kPatience });
    // The server's certificate comes from its own CA, which this throwaway
    // browser profile does not know.
    const context = await browser.newContext({ ignoreHTTPSErrors: true });
    const page = await context.newPage();
    page.setDefaultTimeout(kPatience);
    const shot = async (name) => {
      const file = path.join(path.resolve(work), name);
      await page.screenshot({ path: file, fullPage: true });
      console.log(`browser-test: screenshot ${file}`);
    };
    await page.goto(url);
    await shot('sign-in-page.png');
    await page.fill('#username', 'alice');
    await page.fill('#password', 'not-the-password');
    await page.click('#sign-in');
    // Only the page that comes back has a message.
    const complaint = await page.textContent('#message');
    if (complaint !== 'The user name or password is wrong.') fail(`the page says "${complaint}"`);
    await shot('sign-in-page-wrong-password.png');
    await page.fill('#password', 'wonderland');
    await Promise.all([page.waitForURL(/^http:\/\/127\.0\.0\.1:\d+\/callback\?/), page.click('#sign-in')]);
    const heading = await page.textContent('h1');
    const message = await page.textContent('#message');
    console.log(`browser-test: the browser shows "${heading}: ${message}"`);
    await shot('signed-in-page.png');
    if (heading !== 'Signed in') fail(`the browser shows "${heading}"`);

    const code = await signedIn;
    if (code !== 0) fail(`web-sign-in exited with ${code}`);
    const status = await runTool([...common, 'status', '--json']);
    const state = JSON.parse(status.stdout);
    if (state.state !== 3 || state.username !== 'alice') fail(`status after sign-in: ${status.stdout}`);
    console.log('browser-test: signed in as alice, state 3');
  } finally {
    if (browser) await browser.close();
    server.kill('SIGTERM');
    await exitOf(server);
    fs.rmSync(home, { recursive: true, force: true });
  }
}

main().then(() => process.exit(0), (error) => {
  console.error(`browser-test: ${error.message}`);
  process.exit(1);
});
