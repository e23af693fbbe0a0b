// Photos: faces, what is known of them, and their names.
import * as api from './api.js';
import { FacePicture, bitmapOf } from './picture.js';
import { faceBadges, nameOf, percent } from './words.js';
import { announce, dropZone, errorBox, h, plural } from './ui.js';
import { shoot } from './shoot.js';

/** The faces of a picture as a list; a line that is pointed at or has the focus stands out in the picture. */
export function faceList(picture, photo) {
    return h('ol', { class: 'faces' }, photo.faces.map((face, i) => {
        const similar = !face.similarity ? null // nobody was asked, or the gallery is empty
            : face.name === null ? `at most ${percent(face.similarity)} similar to anybody` : `${percent(face.similarity)} similar`;
        const line = h('li', { tabindex: '0' },
            h('p', { class: 'face-name' }, h('span', { class: 'number', 'aria-hidden': 'true' }, String(i + 1)),
                face.name === undefined ? `Face ${i + 1}` : nameOf(face), similar && [' ', h('span', { class: 'dim' }, similar)]),
            h('p', { class: 'badges' }, faceBadges(face)));
        for (const [on, off] of [['mouseenter', 'mouseleave'], ['focus', 'blur']]) {
            line.addEventListener(on, () => picture.select(i));
            line.addEventListener(off, () => picture.select(-1));
        }
        return line;
    }));
}

/** What judging and, where there is a gallery, identifying say about a photo, as one. */
export async function look(file) {
    let nameless = null;
    const [judged, identified] = await Promise.all([
        api.inspect(file),
        api.identify(file).catch((error) => {
            nameless = error; // the judgement alone is worth showing, as when the gallery cannot be used
            return null;
        }),
    ]);
    judged.faces.forEach((face, i) => {
        const known = identified?.faces[i];
        if (known) Object.assign(face, { name: known.name, similarity: known.similarity, kind: known.kind });
    });
    return { ...judged, nameless };
}

export function photosView(root) {
    const results = h('div', { class: 'results' });
    const clear = h('button', { type: 'button', hidden: true, onclick: () => empty() }, 'Clear all');
    const pictures = new Set();

    function empty() {
        pictures.forEach((picture) => picture.close());
        pictures.clear();
        results.replaceChildren();
        clear.hidden = true;
        announce('Photos cleared');
        root.querySelector('input[type=file]').focus();
    }

    async function show(file) {
        const status = h('p', { class: 'dim busy' }, 'Looking for faces\u2026');
        const title = file.name || 'Photo from the camera';
        const card = h('article', { class: 'card result', 'aria-busy': 'true' }, h('h3', {}, title), status);
        results.prepend(card);
        clear.hidden = false;
        try {
            const [image, photo] = await Promise.all([bitmapOf(file), look(file)]);
            const picture = new FacePicture(image, photo);
            pictures.add(picture);
            const summary = photo.faces.length ? plural(photo.faces.length, 'face') : 'No face was found';
            status.replaceWith(h('div', { class: 'result-body' }, h('div', { class: 'frame' }, picture.canvas),
                h('div', { class: 'result-text' },
                    h('p', { class: 'summary' }, summary, h('span', { class: 'dim' }, `${photo.width} \u00d7 ${photo.height}`)),
                    !image && h('p', { class: 'dim' }, 'Your browser cannot show this kind of picture; the server can read it.'),
                    photo.nameless && photo.faces.length > 0 && h('p', { class: 'message bad' }, `Names are missing. ${photo.nameless.plain ?? ''}`),
                    photo.faces.length > 0 && faceList(picture, photo))));
            announce(`${title}: ${summary}. ${photo.faces.map((face, i) => face.name === undefined ? `face ${i + 1}` : nameOf(face)).join(', ')}`);
        } catch (error) {
            status.replaceWith(errorBox(error));
        }
        card.removeAttribute('aria-busy');
    }

    async function take(files) {
        for (const file of files) await show(file);
    }

    root.append(
        h('p', { class: 'lead' }, 'Who is in a photo, and how good is it?'),
        h('div', { class: 'sources' },
            dropZone({ text: 'Drop photos here, paste them, or choose files', multiple: true, take, label: 'Choose photos' }),
            h('button', {
                type: 'button', class: 'camera-button',
                onclick: async () => {
                    const photo = await shoot('Take a photo');
                    if (photo) take([photo]);
                },
            }, 'Use the camera')),
        h('div', { class: 'row end above' }, clear), results);

    return {
        paste: (files) => take(files),
    };
}
