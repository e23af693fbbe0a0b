// The camera, identified live, and who came and went.
import * as api from './api.js';
import { Camera, FrameLoop } from './camera.js';
import { Presence } from './presence.js';
import { drawOver } from './picture.js';
import { announce, clock, duration, errorBox, h } from './ui.js';

const somebody = 'Somebody unknown';
const longestLog = 200;

export function liveView(root) {
    const video = h('video', { class: 'live-picture', muted: true, playsinline: true, 'aria-label': 'What the camera sees' });
    video.muted = true;
    const overlay = h('canvas', { class: 'overlay', 'aria-hidden': 'true' });
    const frame = h('div', { class: 'frame live-frame' }, video, overlay);
    const empty = h('p', { class: 'empty' }, 'The camera is off.');
    frame.append(empty);
    const start = h('button', { type: 'button', class: 'primary', onclick: () => (loop?.on ? stop() : begin()) }, 'Start the camera');
    const speed = h('p', { class: 'dim speed' });
    const trouble = h('div', {});
    const here = h('ul', { class: 'here', 'aria-label': 'Here now' });
    const log = h('ol', { class: 'log', role: 'log', 'aria-label': 'Who came and went' });
    const camera = new Camera(video);
    const cameras = camera.chooser((error) => {
        stop();
        trouble.replaceChildren(errorBox(error));
    });
    let presence = new Presence();
    let loop = null;
    let times = [];

    function note(events) {
        for (const event of events) {
            log.prepend(h('li', { class: event.what },
                h('time', { class: 'dim', datetime: new Date(Date.now() - performance.now() + event.time).toISOString() },
                    clock(Date.now() - performance.now() + event.time)),
                h('span', { class: 'who' }, event.name),
                h('span', { class: 'dim' }, event.what === 'came' ? 'came' : `went, stayed ${duration(event.stayed)}`)));
        }
        while (log.children.length > longestLog) log.lastChild.remove();
        if (events.length || !here.children.length) {
            const names = presence.here();
            here.replaceChildren(...(names.length ? names.map((name) => h('li', {}, name)) : [h('li', { class: 'nobody' }, 'Nobody')]));
        }
    }

    const draw = (photo) => drawOver(overlay, video, photo, camera.mirror);

    async function work(blob) {
        const begun = performance.now();
        const mine = loop;
        try {
            const photo = await api.identify(blob, { patient: false });
            if (loop !== mine || !mine.on) return null;
            trouble.replaceChildren();
            const now = performance.now();
            draw(photo);
            note(presence.see(photo.faces.map((face) => face.name ?? somebody), now));
            times = [...times.filter((time) => now - time < 3000), now];
            const rate = times.length > 1 ? (times.length - 1) / ((now - times[0]) / 1000) : 0;
            speed.textContent = `${rate.toFixed(1)} frames a second, ${Math.round(now - begun)} ms each`;
            return null;
        } catch (error) {
            if (loop !== mine || !mine.on) return null;
            if (error.status === 503) return 1000; // this frame is dropped
            draw(null);
            if (!trouble.children.length) trouble.replaceChildren(errorBox(error));
            if (error.status === 401 || error.status === 403) {
                const box = trouble.firstChild;
                stop();
                trouble.replaceChildren(box);
            }
            return 3000;
        }
    }

    async function begin() {
        trouble.replaceChildren();
        start.disabled = true;
        try {
            if (!await camera.start()) return;
        } catch (error) {
            stop();
            trouble.replaceChildren(errorBox(error));
            return;
        } finally {
            start.disabled = false;
        }
        empty.hidden = true;
        start.textContent = 'Stop the camera';
        times = [];
        note([]);
        announce('The camera is on');
        loop = new FrameLoop(camera, work);
        loop.run();
    }

    function stop() {
        const ran = loop?.on;
        loop?.stop();
        camera.stop();
        cameras.hidden = true;
        note(presence.end());
        presence = new Presence();
        draw(null);
        empty.hidden = false;
        speed.textContent = '';
        start.textContent = 'Start the camera';
        trouble.replaceChildren();
        if (ran) announce('The camera is off');
    }

    root.append(h('p', { class: 'lead' }, 'Who is in front of the camera, and who came and went?'),
        h('div', { class: 'live' },
            h('div', { class: 'live-camera' }, frame, h('div', { class: 'row' }, start, cameras, speed), trouble),
            h('div', { class: 'live-people' },
                h('section', { class: 'card' }, h('h3', {}, 'Here now'), here),
                h('section', { class: 'card' }, h('h3', {}, 'Came and went'), log,
                    h('p', { class: 'dim small-print' }, 'This list is kept until you leave the page, and nowhere else.')))));
    note([]);
    return { leave: stop };
}
