// A server of its own, a browser, and pages that remember everything that went wrong in them.
import { spawn } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

export const work = process.env.WORK;
export const photos = fileURLToPath(new URL('../../examples/photos/', import.meta.url));
export const photo = (name) => path.join(photos, name);
export const made = (name) => path.join(work, name);
export const { chromium } = createRequire(path.join(work, 'package.json'))('playwright-core');

/** Runs "veldan" to its end and resolves to what it printed. */
export function veldan(...parameters) {
    return new Promise((resolve, reject) => {
        const process_ = spawn(process.env.VELDAN, parameters, { stdio: ['ignore', 'pipe', 'inherit'] });
        let text = '';
        process_.stdout.on('data', (data) => { text += data; });
        process_.on('error', reject);
        process_.on('close', (code) => (code === 0 ? resolve(text) : reject(new Error(`veldan ${parameters[0]}: exit code ${code}`))));
    });
}

/** Starts a server with a gallery that nobody is in; resolves to {url, folder, stop}. */
export async function serve({ tokens = false } = {}) {
    const folder = mkdtempSync(path.join(tmpdir(), 'veldan-page-'));
    const parameters = ['serve', '--gallery', path.join(folder, 'people.db'), '--listen', '127.0.0.1:0'];
    const given = {};
    if (tokens) {
        for (const role of ['read', 'admin'])
            given[role] = (await veldan('token', 'new', '--tokens', path.join(folder, 'tokens'), role, role)).trim();
        parameters.push('--tokens', path.join(folder, 'tokens'));
    }
    const server = spawn(process.env.VELDAN, parameters, { stdio: ['ignore', 'pipe', 'pipe'] });
    const ended = new Promise((resolve) => server.on('close', resolve));
    let log = '';
    const url = await new Promise((resolve, reject) => {
        const read = (data) => {
            log += data;
            const found = /127\.0\.0\.1:(\d+)/.exec(log);
            if (found) resolve(`http://127.0.0.1:${found[1]}/`);
        };
        server.stdout.on('data', read);
        server.stderr.on('data', read);
        server.on('close', (code) => reject(new Error(`the server ended with ${code}: ${log}`)));
    });
    return {
        url, folder, tokens: given,
        stop: async () => {
            server.kill('SIGTERM');
            const code = await ended;
            rmSync(folder, { recursive: true });
            if (code !== 0) throw new Error(`the server ended with ${code}: ${log.slice(-2000)}`);
        },
    };
}

/** A browser; `camera` is the video that its camera plays; without one there are two cameras with a test picture. */
export function browse(camera = null) {
    const flags = ['--no-sandbox', '--disable-dev-shm-usage', '--use-fake-ui-for-media-stream'];
    if (camera) flags.push('--use-fake-device-for-media-stream', `--use-file-for-fake-video-capture=${made(camera)}`);
    else flags.push('--use-fake-device-for-media-stream=device-count=2');
    return chromium.launch({ executablePath: '/usr/bin/chromium', args: flags });
}

/**
 * A page at the server's, with `troubles`: what the console, the security policy and the network had to complain about.
 * `expected` are statuses that the test provokes; the browser reports each as an error.
 */
export async function open(browser, server, { expected = [], hash = '', ...options } = {}) {
    const context = await browser.newContext({ viewport: { width: 1280, height: 860 }, locale: 'en-GB', ...options });
    const page = await context.newPage();
    page.setDefaultTimeout(20000);
    page.troubles = [];
    page.on('console', (message) => {
        const provoked = expected.some((status) => message.text().includes(`status of ${status}`));
        if (['error', 'warning'].includes(message.type()) && !provoked) page.troubles.push(message.text());
    });
    page.on('pageerror', (error) => page.troubles.push(String(error)));
    page.on('request', (request) => {
        if (!request.url().startsWith(server.url)) page.troubles.push(`went to ${request.url()}`);
    });
    page.on('response', (response) => {
        if (response.status() >= 400 && !expected.includes(response.status()))
            page.troubles.push(`${response.status()} from ${response.url()}`);
    });
    await page.addInitScript(() => {
        addEventListener('securitypolicyviolation', (event) => console.error(`policy: ${event.violatedDirective} ${event.blockedURI}`));
    });
    await page.goto(server.url + hash);
    return page;
}

let shots = 0;
export async function screenshot(page, name, options = {}) {
    const number = String(++shots).padStart(2, '0');
    await page.screenshot({ path: path.join(work, 'screenshots', `${number}-${name}.png`), ...options });
}

/** Chooses files at the input of that name. */
export const choose = (page, label, ...files) => page.getByLabel(label, { exact: true }).setInputFiles(files);

/** Enrols somebody from photos and waits until the page shows the person. */
export async function enrol(page, server, name, files, { keep = false } = {}) {
    await page.goto(`${server.url}#people/new`);
    await page.getByLabel('Name').fill(name);
    await choose(page, 'Choose photos of this person', ...files);
    await page.getByText(/^Quality \d+$/).nth(files.length - 1).waitFor();
    if (keep) await page.getByLabel(/Keep a small picture/).check();
    await page.getByRole('button', { name: /^Enrol \d/ }).click();
    await page.getByRole('heading', { name, level: 2 }).waitFor();
}
