// Enrolling: photos of one person, from files or from the camera with hints.
import * as api from './api.js';
import * as thumbs from './thumbs.js';
import { Camera, FrameLoop } from './camera.js';
import { bitmapOf, drawOver, faceCrop } from './picture.js';
import { enrolmentHint } from './words.js';
import { announce, badge, dropZone, errorBox, h, plural, toast } from './ui.js';

const goodFrames = 4; // in a row before the photo is taken by itself: about half a second

/** Why a photo from a file will be refused, or null. The server has the last word. */
function refusal(photo) {
    if (photo.faces.length === 0) return 'No face was found';
    if (photo.faces.length > 1) return 'Several faces: use a photo of one person';
    if (photo.faces[0].masked) return 'The face wears a mask';
    if (photo.faces[0].quality < 40) return 'The quality is too low';
    return null;
}

/** @param person who gets the photos; null: somebody new. @param done is called with the name of the person */
export function enrolView(root, person, done) {
    const shots = []; // {file, crop, problem, line}
    const name = h('input', { id: 'person-name', type: 'text', required: true, maxlength: '200', autocomplete: 'off' });
    const keep = h('input', { type: 'checkbox', id: 'keep' });
    const taken = h('ul', { class: 'shots', 'aria-label': 'Photos to enrol' });
    const trouble = h('div', {});
    const save = h('button', { type: 'submit', class: 'primary', disabled: true }, 'Enrol');
    const cameraPlace = h('div', {});
    const cameraButton = h('button', { type: 'button', class: 'camera-button', onclick: () => openCamera() }, 'Use the camera');
    let closeCamera = null;
    let left = false;

    const usable = () => shots.filter((shot) => !shot.problem);
    function refresh() {
        const count = usable().length;
        save.disabled = count === 0;
        save.textContent = count ? `Enrol ${plural(count, 'photo')}` : 'Enrol';
    }

    function remove(shot) {
        shots.splice(shots.indexOf(shot), 1);
        shot.line.remove();
        refresh();
    }

    function mark(shot, text, tone) {
        shot.line.querySelector('.badge').replaceWith(badge(text, tone));
    }

    async function add(file, known = null) {
        const title = file.name || 'From the camera';
        const shot = { file, crop: null, problem: 'not looked at yet' };
        const cropPlace = h('span', { class: 'portrait', 'aria-hidden': 'true' });
        shot.line = h('li', { class: 'shot' }, cropPlace, h('span', { class: 'shot-text' }, h('span', { class: 'photo-name' }, title), badge('Looking\u2026')),
            h('button', { type: 'button', class: 'link', 'aria-label': `Remove ${title}`, onclick: () => remove(shot) }, 'Remove'));
        shots.push(shot);
        taken.append(shot.line);
        try {
            const [image, photo] = await Promise.all([bitmapOf(file), known ?? api.inspect(file)]);
            shot.problem = refusal(photo);
            if (image && photo.faces.length) {
                shot.crop = faceCrop(image, photo.faces[0].box);
                cropPlace.replaceChildren(shot.crop);
            }
            image?.close();
            mark(shot, shot.problem ?? `Quality ${photo.faces[0].quality}`, shot.problem ? 'bad' : 'good');
        } catch (error) {
            shot.problem = error.plain ?? 'This photo cannot be used';
            mark(shot, shot.problem, 'bad');
        }
        announce(`${title}: ${shot.problem ?? 'can be enrolled'}`);
        refresh();
    }

    async function addAll(files) {
        for (const file of files) await add(file);
    }

    async function openCamera() {
        const video = h('video', { class: 'live-picture', muted: true, playsinline: true, 'aria-label': 'What the camera sees' });
        video.muted = true;
        const overlay = h('canvas', { class: 'overlay', 'aria-hidden': 'true' });
        const hint = h('p', { class: 'hint', role: 'status' }, 'Starting the camera\u2026');
        const camera = new Camera(video);
        const shutter = h('button', { type: 'button', class: 'primary', disabled: true, onclick: () => capture() }, 'Take the photo now');
        const again = h('button', {
            type: 'button', hidden: true,
            onclick: () => {
                waiting = false;
                again.hidden = true;
                good = 0;
            },
        }, 'Take another');
        let good = 0;
        let waiting = false; // a photo was taken; the next is taken when it is asked for
        let last = null;

        function say(text, tone) {
            if (hint.textContent !== text) hint.textContent = text; // unchanged text is not read out again
            hint.className = `hint ${tone}`;
        }

        async function capture() {
            const shot = last;
            if (!shot) return;
            waiting = true;
            last = null;
            shutter.disabled = true;
            again.hidden = false;
            say('The photo was taken', 'good');
            draw(null);
            const file = new File([shot.blob], `camera-${new Date().toISOString().slice(0, 19).replace(/[:T]/g, '-')}.jpg`, { type: 'image/jpeg' });
            await add(file, shot.photo);
            if (!again.isConnected) return;
            again.focus();
        }

        const draw = (photo) => drawOver(overlay, video, photo, camera.mirror);

        const loop = new FrameLoop(camera, async (blob) => {
            if (waiting) return 200;
            try {
                const photo = await api.inspect(blob, { patient: false });
                if (!loop.on || waiting) return null;
                draw(photo);
                const found = enrolmentHint(photo.faces, photo);
                say(found.text, found.good ? 'good' : 'warn');
                last = found.usable ? { blob, photo } : null;
                shutter.disabled = !last;
                good = found.good ? good + 1 : 0;
                if (good >= goodFrames) await capture();
            } catch (error) {
                if (error.status === 503) return 1000;
                say(error.plain ?? 'The camera picture could not be looked at', 'bad');
                return 2000;
            }
            return null;
        }, { longest: 960, perSecond: 8 });

        closeCamera = () => {
            loop.stop();
            camera.stop();
            cameraPlace.replaceChildren();
            cameraButton.hidden = false;
            closeCamera = null;
        };
        cameraButton.hidden = true;
        cameraPlace.replaceChildren(h('div', { class: 'enrol-camera' }, h('div', { class: 'frame live-frame' }, video, overlay, hint),
            h('p', { class: 'dim' }, 'The photo is taken by itself once everything is right.'),
            h('div', { class: 'row' }, shutter, again, camera.chooser((error) => {
                closeCamera?.();
                cameraPlace.replaceChildren(errorBox(error));
            }), h('button', {
                type: 'button',
                onclick: () => {
                    closeCamera();
                    cameraButton.focus();
                },
            }, 'Close the camera'))));
        try {
            if (!await camera.start()) return;
        } catch (error) {
            closeCamera?.();
            cameraPlace.replaceChildren(errorBox(error));
            return;
        }
        cameraPlace.scrollIntoView({ block: 'center' });
        loop.run();
    }

    async function submit(event) {
        event.preventDefault();
        trouble.replaceChildren();
        save.disabled = true;
        let known = person?.name ?? null;
        let enrolled = 0;
        let refused = 0;
        for (const shot of usable()) {
            mark(shot, 'Enrolling\u2026');
            try {
                if (known === null) {
                    await api.enrol(name.value.trim(), shot.file);
                    known = name.value.trim();
                    person = { name: known };
                    name.disabled = true; // what follows belongs to this person
                } else await api.addPhoto(known, shot.file);
                if (keep.checked && shot.crop && enrolled === 0) {
                    const blob = await new Promise((resolve) => shot.crop.toBlob(resolve, 'image/jpeg', 0.85));
                    await thumbs.keep(known, blob);
                }
                ++enrolled;
                shots.splice(shots.indexOf(shot), 1);
                shot.line.remove();
            } catch (error) {
                ++refused;
                if ([413, 415, 422].includes(error.status)) {
                    shot.problem = error.plain;
                    mark(shot, error.plain, 'bad');
                    continue;
                }
                mark(shot, 'Not enrolled', 'warn');
                trouble.replaceChildren(errorBox(error));
                if (error.status === 409)
                    trouble.firstChild.append(h('a', { href: `#people/add/${encodeURIComponent(name.value.trim())}` },
                        `Add photos of ${name.value.trim()}`));
                break;
            }
        }
        refresh();
        if (refused === 0 && known !== null) {
            toast(`${known}: ${plural(enrolled, 'photo')} enrolled`);
            done(known);
        }
    }

    const form = h('form', { class: 'enrol', onsubmit: submit },
        h('h2', { tabindex: '-1' }, person ? `More photos of ${person.name}` : 'Enrol a person'),
        !person && h('label', { for: 'person-name' }, 'Name'), !person && name,
        h('fieldset', {}, h('legend', {}, 'Photos'),
            h('p', { class: 'dim' }, 'One bare face, looking at the camera. Two or three photos in different light work best.'),
            h('div', { class: 'sources' },
                dropZone({ text: 'Drop photos here, or choose files', multiple: true, take: addAll, label: 'Choose photos of this person', small: true }), cameraButton),
            cameraPlace, taken),
        h('div', { class: 'check' }, keep, h('label', { for: 'keep' }, 'Keep a small picture of the face in this browser, for the list of people')),
        h('p', { class: 'dim small-print' }, 'The server keeps no photos, only what describes the face. A kept picture never leaves this browser.'),
        trouble, h('div', { class: 'actions start' }, save));
    root.append(form);
    (person ? form.querySelector('h2') : name).focus();

    return {
        leave: () => {
            left = true;
            closeCamera?.();
        },
        paste: addAll,
    };
}
