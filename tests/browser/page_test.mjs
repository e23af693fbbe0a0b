// What people do with the page of the service, in a real browser.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { after, before, describe, test } from 'node:test';
import { browse, choose, enrol, made, open, photo, screenshot, serve } from './harness.mjs';

const ada = 'Ada Lovelace';
const grace = 'Grace Hopper';

/** Names and pills of the list of faces in the newest result. */
const facesOf = (page) => page.locator('.result').first().locator('.faces li').evaluateAll((lines) => lines.map((line) => line.innerText));

const finish = async (page) => {
    assert.deepEqual(page.troubles, []);
    await page.context().close();
};

describe('people come in by photo and by camera', () => {
    let server;
    let browser;
    before(async () => {
        server = await serve();
        browser = await browse('enrol.y4m');
    });
    after(async () => {
        await browser?.close();
        await server?.stop();
    });

    test('the camera takes the photo once the hints are followed', async () => {
        const page = await open(browser, server, { hash: '#people' });
        await page.getByText('Nobody is enrolled yet.').waitFor();
        await page.getByRole('link', { name: 'Enrol a person' }).click();
        await page.getByLabel('Name').fill(ada);
        await page.evaluate(() => {
            window.hints = new Set();
            new MutationObserver(() => {
                const hint = document.querySelector('.hint');
                if (hint) window.hints.add(hint.textContent);
            }).observe(document.body, { subtree: true, childList: true, characterData: true });
        });
        await page.getByRole('button', { name: 'Use the camera' }).click();
        for (const hint of ['Come closer', 'Take off the mask']) {
            await page.getByText(hint).waitFor();
            await screenshot(page, `enrol-${hint.toLowerCase().replaceAll(' ', '-')}`);
        }
        await page.getByText('The photo was taken').waitFor();
        const hints = await page.evaluate(() => [...window.hints]);
        for (const hint of ['Look into the camera', 'Come closer', 'One person at a time, please', 'Take off the mask', 'Turn to the camera', 'Good. Hold still'])
            assert.ok(hints.includes(hint), `"${hint}" is not among ${hints}`);
        await page.getByText(/^Quality \d+$/).waitFor();
        await screenshot(page, 'enrol-taken', { fullPage: true });
        await page.getByRole('button', { name: 'Enrol 1 photo' }).click();
        await page.getByRole('heading', { name: ada, level: 2 }).waitFor();
        assert.match(await page.locator('.photo').innerText(), /camera-.*\.jpg/);
        const tracks = await page.evaluate(() => document.querySelectorAll('video').length);
        assert.equal(tracks, 0, 'the camera is closed');
        await finish(page);
    });

    test('a photo file enrols, and a picture is kept only when it was asked for', async () => {
        const page = await open(browser, server);
        await enrol(page, server, grace, [photo('second-bare.webp')], { keep: true });
        await screenshot(page, 'person');
        await page.getByRole('link', { name: 'All people' }).click();
        await page.getByText('2 people').waitFor();
        const kept = () => page.locator('.person:has(canvas) .person-name').allInnerTexts();
        await page.locator('.person canvas').waitFor();
        assert.deepEqual(await kept(), [grace]);
        await screenshot(page, 'people');
        await page.getByLabel('Find a name').fill('ada');
        await page.getByText('1 person').waitFor();
        assert.deepEqual(await page.locator('.person-name').allInnerTexts(), [ada]);
        await page.getByRole('button', { name: 'Remove kept pictures' }).click();
        await page.getByText('2 people').waitFor();
        assert.deepEqual(await kept(), []);
        await finish(page);
    });

    test('a photo is answered with names, judgements and boxes that can be told apart', async () => {
        const page = await open(browser, server);
        const dropped = await page.evaluateHandle(async (base64) => {
            const transfer = new DataTransfer();
            transfer.items.add(new File([Uint8Array.from(atob(base64), (letter) => letter.charCodeAt(0))], 'both.jpg', { type: 'image/jpeg' }));
            return transfer;
        }, readFileSync(made('both.jpg'), 'base64'));
        await page.locator('#content-photos .drop').dispatchEvent('drop', { dataTransfer: dropped });
        await page.locator('.faces li').nth(1).waitFor();
        const faces = await facesOf(page);
        assert.match(faces[0], /Ada Lovelace\s+\d+% similar\s+Quality \d+\s+Mask\s+(Live|Not live) \d+/);
        assert.match(faces[1], /Grace Hopper/);
        const picture = page.getByRole('img', { name: `Photo with 2 faces: ${ada}, ${grace}` });
        const drawn = () => picture.evaluate((canvas) => canvas.toDataURL());
        const plain = await drawn();
        await page.locator('.faces li').first().hover();
        assert.notEqual(await drawn(), plain, 'the face that is pointed at stands out');
        await page.getByRole('heading', { name: 'Photos', level: 1 }).hover();
        await screenshot(page, 'photos', { fullPage: true });
        await choose(page, 'Choose photos', photo('rows.webp'), photo('queue.webp'), photo('astronaut.jpg'));
        await page.getByRole('heading', { name: 'astronaut.jpg' }).waitFor();
        await page.locator('.result').first().locator('.faces li').waitFor();
        assert.match((await facesOf(page))[0], /Unknown\s+at most \d+% similar to anybody/);
        await screenshot(page, 'photos-crowd', { fullPage: true });
        await page.getByRole('button', { name: 'Clear all' }).click();
        assert.equal(await page.locator('.result').count(), 0);
        await finish(page);
    });

    test('labels stay in the picture and apart from each other', async () => {
        const page = await open(browser, server);
        const wrong = await page.evaluate(async () => {
            const { placeLabels } = await import('/labels.js');
            let seed = 1;
            const random = (most) => (seed = (seed * 48271) % 2147483647) % most;
            const area = { width: 400, height: 300 };
            const found = [];
            for (let round = 0; round < 300; ++round) {
                const boxes = Array.from({ length: 1 + random(40) }, () => ({ x: random(430) - 30, y: random(330) - 30, width: 10 + random(90), height: 10 + random(120) }));
                const labels = placeLabels(boxes, boxes.map(() => [{ width: 60 + random(90), height: 40 }, { width: 50, height: 23 }, { width: 20, height: 23 }]), area);
                labels.forEach((a, i) => {
                    if (!a) return;
                    if (a.x < 0 || a.y < 0 || a.x + a.width > area.width || a.y + a.height > area.height) found.push(['outside', a]);
                    for (const b of labels.slice(i + 1))
                        if (b && a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height && b.y < a.y + a.height) found.push([a, b]);
                });
                if (labels.length !== boxes.length || (boxes.length < 4 && labels.includes(null))) found.push(['missing', labels]);
            }
            return found;
        });
        assert.deepEqual(wrong, []);
        await finish(page);
    });

    test('two photos are compared', async () => {
        const page = await open(browser, server, { hash: '#compare' });
        await choose(page, 'First photo', photo('first-bare.webp'));
        await page.getByRole('button', { name: 'Change the first photo' }).waitFor();
        await choose(page, 'Second photo', photo('first-mask.webp'));
        await page.getByText('Almost certainly the same person').waitFor();
        await page.getByText('A mask is worn').waitFor();
        await screenshot(page, 'compare', { fullPage: true });
        await page.getByRole('button', { name: 'Change the second photo' }).click();
        assert.equal(await page.getByText('Almost certainly').count(), 0);
        await choose(page, 'Second photo', photo('astronaut.jpg'));
        await page.getByText('Probably different people').waitFor();
        await finish(page);
    });

    test('what cannot be used is refused in plain words', async () => {
        const page = await open(browser, server, { expected: [404, 409, 415, 422] });
        await choose(page, 'Choose photos', made('text.jpg'), made('tiny.png'));
        await page.getByText('This file is not a picture that can be read.').waitFor();
        await page.getByText('This picture is too small').waitFor();
        await screenshot(page, 'bad-photos');
        await page.goto(`${server.url}#people/new`);
        await page.getByLabel('Name').fill('Nobody');
        await choose(page, 'Choose photos of this person', photo('first-mask.webp'), made('both.jpg'), made('text.jpg'));
        for (const why of ['The face wears a mask', 'Several faces: use a photo of one person', 'This file is not a picture that can be read.'])
            await page.locator('.shot').getByText(why).waitFor();
        assert.ok(await page.getByRole('button', { name: 'Enrol', exact: true }).isDisabled());
        await page.getByRole('button', { name: 'Remove text.jpg' }).click();
        assert.equal(await page.locator('.shot').count(), 2);
        await page.getByLabel('Name').fill(ada);
        await choose(page, 'Choose photos of this person', photo('first-bare.webp'));
        await page.getByRole('button', { name: 'Enrol 1 photo' }).click();
        await page.getByText('Somebody of that name is enrolled already.').waitFor();
        await page.getByRole('link', { name: `Add photos of ${ada}` }).click();
        await page.getByRole('heading', { name: `More photos of ${ada}` }).waitFor();
        await page.goto(`${server.url}#people/of/Somebody%20else`);
        await page.getByText('There is no "Somebody else".').waitFor();
        await finish(page);
    });
});

describe('people are looked after', () => {
    let server;
    let browser;
    before(async () => {
        server = await serve();
        browser = await browse('visitors.y4m');
        const page = await open(browser, server);
        await enrol(page, server, ada, [photo('first-bare.webp')]);
        await enrol(page, server, grace, [photo('second-bare.webp')]);
        await finish(page);
    });
    after(async () => {
        await browser?.close();
        await server?.stop();
    });

    test('the camera is identified live, one frame at a time, and says who came and went', async () => {
        const page = await open(browser, server, { hash: '#live' });
        let underWay = 0;
        let most = 0;
        let frames = 0;
        const identifies = (request) => request.url().endsWith('/v1/identify');
        page.on('request', (request) => { if (identifies(request)) most = Math.max(most, ++underWay); });
        page.on('requestfinished', (request) => { if (identifies(request)) { --underWay; ++frames; } });
        await page.getByRole('button', { name: 'Start the camera' }).click();
        const log = page.getByRole('log');
        for (const [name, what] of [[ada, 'came'], [grace, 'came'], [ada, 'went'], [grace, 'went']]) {
            await log.locator(`li.${what}`, { hasText: name }).first().waitFor();
            if (name === grace && what === 'came') await screenshot(page, 'live');
        }
        await log.locator('li.came', { hasText: ada }).nth(1).waitFor(); // the video begins anew
        assert.ok(await page.getByRole('list', { name: 'Here now' }).getByText(ada).isVisible());
        assert.equal(most, 1);
        assert.ok(frames > 10, `${frames} frames`);
        await page.getByRole('link', { name: 'Photos' }).click();
        const before = frames;
        await page.waitForTimeout(700);
        assert.ok(frames - before <= 1, 'nothing is sent once the view is left');
        await page.getByRole('link', { name: 'Live' }).click();
        await page.getByText('The camera is off.').waitFor();

        await page.getByRole('link', { name: 'Photos' }).click();
        await page.getByRole('button', { name: 'Use the camera' }).click();
        await page.getByRole('button', { name: 'Take the photo' }).click();
        await page.getByRole('heading', { name: 'Photo from the camera' }).waitFor();
        await page.locator('.result .summary').waitFor();
        await finish(page);
    });

    test('a busy server gets fewer frames, and a server that is gone is told', async () => {
        const page = await open(browser, server, { hash: '#live', expected: [503] });
        let answered = 0;
        await page.route('**/v1/identify', (route) => {
            ++answered;
            return route.fulfill({ status: 503, headers: { 'Retry-After': '1' }, contentType: 'application/problem+json', body: '{"status": 503}' });
        });
        await page.getByRole('button', { name: 'Start the camera' }).click();
        await page.waitForTimeout(2500);
        assert.ok(answered >= 1 && answered <= 4, `${answered} frames`);
        await page.getByRole('button', { name: 'Stop the camera' }).click();
        await page.unroute('**/v1/identify');
        await page.route('**/v1/identify', (route) => route.fulfill({ status: 503, contentType: 'application/problem+json', body: '{"status": 503, "code": "gallery"}' }));
        await page.getByRole('link', { name: 'Photos' }).click();
        await choose(page, 'Choose photos', photo('astronaut.jpg'));
        await page.getByText('Names are missing. The gallery of faces cannot be used at the moment.').waitFor();
        assert.match((await facesOf(page))[0], /Face 1\s+Quality \d+/);
        await page.route('**/v1/people', (route) => route.abort());
        await page.getByRole('link', { name: 'People' }).click();
        await page.getByText('The server cannot be reached.').waitFor();
        await page.unroute('**/v1/people');
        await page.getByRole('button', { name: 'Try again' }).click();
        await page.getByText('2 people').waitFor();
        assert.deepEqual(page.troubles.filter((trouble) => !trouble.includes('net::ERR_FAILED')), []);
        await page.context().close();
    });

    test('photos are added and deleted, people renamed, merged and deleted', async () => {
        const page = await open(browser, server, { hash: '#people' });
        await page.getByRole('link', { name: grace }).click();
        await page.getByRole('link', { name: 'Add photos' }).click();
        await choose(page, 'Choose photos of this person', photo('astronaut.jpg'));
        await page.getByRole('button', { name: 'Enrol 1 photo' }).click();
        await page.getByRole('button', { name: 'Delete the photo astronaut.jpg' }).click();
        await page.getByRole('dialog').getByRole('button', { name: 'Delete' }).click();
        await page.getByText('1 photo', { exact: true }).waitFor();

        await page.getByRole('button', { name: 'Rename' }).click();
        await page.getByLabel('New name').fill('G. M. Hopper / \u00e9');
        await page.keyboard.press('Escape');
        await page.getByRole('button', { name: 'Rename' }).click();
        await page.getByLabel('New name').fill('\u00c9lise & "G" <b>?#%');
        await page.getByRole('dialog').getByRole('button', { name: 'Rename' }).click();
        await page.getByRole('heading', { name: '\u00c9lise & "G" <b>?#%', level: 2 }).waitFor();

        await page.getByRole('button', { name: 'Merge' }).click();
        await screenshot(page, 'merge');
        await page.getByLabel('Merge into').selectOption(ada);
        await page.getByRole('dialog').getByRole('button', { name: 'Merge' }).click();
        await page.getByRole('heading', { name: ada, level: 2 }).waitFor();
        await page.getByText('2 photos', { exact: true }).waitFor();

        await page.getByRole('button', { name: 'Delete\u2026' }).click();
        await screenshot(page, 'delete');
        assert.equal(await page.evaluate(() => document.activeElement.textContent), 'Cancel');
        await page.keyboard.press('Enter');
        await page.getByRole('dialog').waitFor({ state: 'detached' });
        await page.getByRole('heading', { name: ada, level: 2 }).waitFor();
        await page.getByRole('button', { name: 'Delete\u2026' }).click();
        await page.getByRole('dialog').getByRole('button', { name: 'Delete' }).click();
        await page.getByText('Nobody is enrolled yet.').waitFor();
        await finish(page);
    });

    test('the keyboard alone enrols somebody', async () => {
        const page = await open(browser, server);
        const press = async (key, wanted) => {
            for (let i = 0; i < 40; ++i) {
                await page.keyboard.press(key);
                const focused = await page.evaluate(() => {
                    const element = document.activeElement;
                    return element.getAttribute('aria-label') ?? (element.labels?.[0]?.textContent || element.textContent);
                });
                if (focused === wanted) return;
            }
            assert.fail(`${key} never leads to ${wanted}`);
        };
        await press('Tab', 'Skip to the content');
        await press('Tab', 'People');
        await page.keyboard.press('Enter');
        await page.getByRole('heading', { name: 'People', level: 1 }).waitFor();
        await press('Tab', 'Enrol a person');
        await page.keyboard.press('Enter');
        await page.getByRole('heading', { name: 'Enrol a person' }).waitFor();
        await page.keyboard.type('Edith Clarke');
        await press('Tab', 'Choose photos of this person');
        await screenshot(page, 'keyboard-focus');
        const chooser = page.waitForEvent('filechooser');
        await page.keyboard.press('Space');
        await (await chooser).setFiles(photo('astronaut.jpg'));
        await page.getByText(/^Quality \d+$/).waitFor();
        await press('Tab', 'Keep a small picture of the face in this browser, for the list of people');
        await page.keyboard.press('Space');
        await press('Tab', 'Enrol 1 photo');
        await page.keyboard.press('Enter');
        await page.getByRole('heading', { name: 'Edith Clarke', level: 2 }).waitFor();
        assert.equal(await page.evaluate(() => document.activeElement.textContent), 'Edith Clarke');
        await press('Tab', 'Delete\u2026');
        await page.keyboard.press('Enter');
        await press('Tab', 'Delete');
        await page.keyboard.press('Enter');
        await page.getByText('Nobody is enrolled yet.').waitFor();
        await finish(page);
    });
});

describe('tokens', () => {
    let server;
    let browser;
    before(async () => {
        server = await serve({ tokens: true });
        browser = await browse();
    });
    after(async () => {
        await browser?.close();
        await server?.stop();
    });

    test('are asked for, kept for the session only, and forgotten on demand', async () => {
        const page = await open(browser, server, { hash: '#people', expected: [401, 403] });
        await page.getByRole('dialog', { name: 'This server asks for a token' }).waitFor();
        await screenshot(page, 'token');
        await page.getByLabel('Token', { exact: true }).fill('certainly-wrong');
        await page.keyboard.press('Enter');
        await page.getByText('That token was not accepted.').waitFor();
        await page.getByLabel('Token', { exact: true }).fill(server.tokens.admin);
        await page.keyboard.press('Enter');
        await page.getByText('Nobody is enrolled yet.').waitFor();
        await enrol(page, server, ada, [photo('first-bare.webp')]);
        await page.reload();
        await page.getByRole('heading', { name: ada, level: 2 }).waitFor();
        const stored = await page.evaluate(() => [localStorage.length, document.cookie, Object.values(sessionStorage), location.href]);
        assert.deepEqual(stored.slice(0, 3), [0, '', [server.tokens.admin]]);
        assert.ok(!stored[3].includes(server.tokens.admin));
        await page.getByRole('button', { name: 'Forget token' }).click();
        await page.getByLabel('Token', { exact: true }).fill(server.tokens.read);
        await page.keyboard.press('Enter');
        await page.getByRole('button', { name: 'Delete\u2026' }).click();
        await page.getByRole('dialog').getByRole('button', { name: 'Delete' }).click();
        await page.getByText('Your token does not allow this.').waitFor();
        await page.getByRole('button', { name: 'Forget token' }).click();
        await page.getByRole('button', { name: 'Cancel' }).click();
        await page.getByText('This server asks for a token.').waitFor();
        await finish(page);
    });
});

describe('cameras', () => {
    let server;
    let browser;
    before(async () => {
        server = await serve();
        browser = await browse();
    });
    after(async () => {
        await browser?.close();
        await server?.stop();
    });

    test('another one can be chosen, and none stays on', async () => {
        const page = await open(browser, server, { hash: '#live' });
        await page.evaluate(() => {
            window.tracks = [];
            const start = navigator.mediaDevices.getUserMedia.bind(navigator.mediaDevices);
            navigator.mediaDevices.getUserMedia = async (wanted) => {
                const stream = await start(wanted);
                window.tracks.push(...stream.getTracks());
                return stream;
            };
        });
        const tracks = () => page.evaluate(() => window.tracks.map((track) => [track.label, track.readyState]));
        await page.getByRole('button', { name: 'Start the camera' }).click();
        const camera = page.getByRole('combobox', { name: 'Camera' });
        const other = (await camera.locator('option:not(:checked)').innerText()).trim();
        await camera.selectOption(other);
        await page.waitForFunction(() => window.tracks.length === 2);
        await page.waitForResponse('**/v1/identify');
        assert.deepEqual((await tracks())[1], [other, 'live']);
        await page.getByRole('link', { name: 'People' }).click();
        await page.getByRole('link', { name: 'Live' }).click();
        await page.getByRole('button', { name: 'Start the camera' }).click();
        await page.getByRole('link', { name: 'People' }).click(); // before it has started
        await page.waitForFunction(() => window.tracks.length === 3);
        assert.deepEqual((await tracks()).map(([, state]) => state), ['ended', 'ended', 'ended']);
        await finish(page);
    });

    test('a camera that is not allowed is explained', async () => {
        const page = await open(browser, server, { hash: '#live' });
        await page.evaluate(() => {
            navigator.mediaDevices.getUserMedia = () => Promise.reject(new DOMException('', 'NotAllowedError'));
        });
        await page.getByRole('button', { name: 'Start the camera' }).click();
        await page.getByText('The browser was not allowed to use the camera.').waitFor();
        await finish(page);
    });
});

describe('screens', () => {
    const long = 'Wolfeschlegelsteinhausenbergerdorff-Kunigunde Maximiliana von und zu Hohenzollern';
    let server;
    let browser;
    before(async () => {
        server = await serve();
        browser = await browse('visitors.y4m');
        const page = await open(browser, server);
        await enrol(page, server, long, [photo('first-bare.webp')]);
        await enrol(page, server, grace, [photo('second-bare.webp')]);
        await finish(page);
    });
    after(async () => {
        await browser?.close();
        await server?.stop();
    });

    const tour = async (page, name, look) => {
        await choose(page, 'Choose photos', photo('queue.webp'), made('both.jpg'));
        await page.locator('.result').first().locator('.faces li').nth(1).waitFor();
        await look('photos');
        await screenshot(page, `${name}-photos`, { fullPage: true });
        await page.goto(`${server.url}#compare`);
        await choose(page, 'First photo', photo('first-bare.webp'));
        await page.getByRole('button', { name: 'Change the first photo' }).waitFor();
        await choose(page, 'Second photo', photo('second-bare.webp'));
        await page.locator('.verdict').waitFor();
        await look('compare');
        await screenshot(page, `${name}-compare`, { fullPage: true });
        await page.goto(`${server.url}#people`);
        await page.getByText('2 people').waitFor();
        await look('people');
        await screenshot(page, `${name}-people`);
        await page.getByRole('link', { name: long }).click();
        await page.getByRole('heading', { name: long }).waitFor();
        await look('person');
        await screenshot(page, `${name}-person`);
        await page.getByRole('button', { name: 'Merge' }).click();
        await look('merge');
        await page.keyboard.press('Escape');
        await page.goto(`${server.url}#people/new`);
        await choose(page, 'Choose photos of this person', photo('first-mask.webp'));
        await page.locator('.shot').getByText('The face wears a mask').waitFor();
        await look('enrol');
        await screenshot(page, `${name}-enrol`, { fullPage: true });
        await page.goto(`${server.url}#live`);
        await page.getByRole('button', { name: 'Start the camera' }).click();
        await page.getByRole('log').locator('li.came', { hasText: 'Wolfe' }).first().waitFor();
        await look('live');
        await screenshot(page, `${name}-live`, { fullPage: true });
    };

    test('a phone 360 pixels wide shows everything, named and large enough, without scrolling sideways', async () => {
        const page = await open(browser, server, { viewport: { width: 360, height: 740 }, deviceScaleFactor: 2, hasTouch: true });
        await tour(page, 'phone', async (view) => {
            const wide = await page.evaluate(() => [document.documentElement.scrollWidth, ...[...document.querySelectorAll('main *, dialog *')]
                .filter((element) => element.checkVisibility() && !element.closest('.visually-hidden') && element.getBoundingClientRect().right > 360.5)
                .map((element) => element.outerHTML.slice(0, 80))]);
            assert.deepEqual(wide, [360], view);
            const awkward = await page.evaluate(() => [...document.querySelectorAll('a, button, input, select, canvas:not([aria-hidden]), video')]
                .filter((element) => element.checkVisibility() && !element.closest('[aria-hidden]'))
                .filter((element) => {
                    const name = element.getAttribute('aria-label') || element.labels?.[0]?.textContent || element.textContent.trim();
                    const target = (element.type === 'file' ? element.parentElement : element).getBoundingClientRect();
                    return !name || (element.matches('a, button, input, select') && !element.closest('p') && Math.min(target.width, target.height) < 20);
                }).map((element) => element.outerHTML.slice(0, 120)));
            assert.deepEqual(awkward, [], `${view}: names and targets`);
            assert.equal(await page.locator('h1:visible').count(), 1);
        });
        await finish(page);
    });

    for (const scheme of ['dark', 'light'])
        test(`${scheme} colours have contrast`, async () => {
            const page = await open(browser, server, { colorScheme: scheme });
            await tour(page, scheme, async (view) => {
                const poor = await page.evaluate(() => {
                    const parse = (text) => (text.match(/[\d.]+/g) ?? []).map(Number);
                    const light = ([r, g, b]) => [r, g, b].map((c) => c / 255).map((c) => (c <= 0.03928 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4))
                        .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
                    const behind = (element) => {
                        for (let at = element; at; at = at.parentElement) {
                            const colour = parse(getComputedStyle(at).backgroundColor);
                            if (colour.length === 3 || colour[3] === 1) return colour;
                        }
                        return [255, 255, 255];
                    };
                    return [...document.querySelectorAll('body *')]
                        .filter((element) => element.checkVisibility() && !element.closest(':disabled, .visually-hidden, .skip, .frame .hint, .toast') &&
                            [...element.childNodes].some((node) => node.nodeType === 3 && node.textContent.trim()))
                        .map((element) => {
                            const [one, other] = [light(parse(getComputedStyle(element).color)), light(behind(element))].sort((a, b) => b - a);
                            return [element.textContent.trim().slice(0, 40), (one + 0.05) / (other + 0.05)];
                        })
                        .filter(([, contrast]) => contrast < 4.5);
                });
                assert.deepEqual(poor, [], view);
            });
            const ground = await page.evaluate(() => getComputedStyle(document.body).backgroundColor.match(/\d+/g).map(Number));
            assert.ok(scheme === 'dark' ? Math.max(...ground) < 50 : Math.min(...ground) > 200, String(ground));
            await finish(page);
        });
});
