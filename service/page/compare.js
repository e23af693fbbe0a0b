// Two photos: is it the same person?
import * as api from './api.js';
import { FacePicture, bitmapOf } from './picture.js';
import { percent } from './words.js';
import { dropZone, errorBox, h } from './ui.js';
import { shoot } from './shoot.js';

/** "1 in 1000" */
const oneIn = (rate) => `1 in ${Math.round(1 / rate).toLocaleString('en')}`;

function scale(answer) {
    // Similarities below one half say nothing, so the scale begins there.
    const place = (similarity) => Math.max(0, Math.min(1, (similarity - 0.4) / 0.6)) * 100;
    const bar = h('div', { class: 'scale', 'aria-hidden': 'true' });
    const fill = h('div', { class: answer.steps.some((step) => step.reached) ? 'fill good' : 'fill' });
    fill.style.width = `${place(answer.similarity)}%`;
    bar.append(fill);
    for (const step of answer.steps) {
        const mark = h('span', { class: step.reached ? 'mark reached' : 'mark' });
        mark.style.left = `${place(step.similarity)}%`;
        bar.append(mark);
    }
    return bar;
}

export function compareView(root) {
    const outcome = h('section', { class: 'outcome', 'aria-label': 'Comparison', 'aria-live': 'polite' });
    const sides = [0, 1].map((i) => ({ file: null, picture: null, place: h('div', { class: 'side' }), label: ['First photo', 'Second photo'][i] }));
    let turn = 0;

    function offer(side) {
        side.place.replaceChildren(
            h('h3', {}, side.label),
            dropZone({ text: 'Drop a photo here, or choose one', take: ([file]) => set(side, file), label: side.label }),
            h('button', {
                type: 'button',
                onclick: async () => {
                    const photo = await shoot(side.label);
                    if (photo) set(side, photo);
                },
            }, 'Use the camera'));
    }

    async function set(side, file) {
        side.file = file;
        side.picture?.close();
        const image = await bitmapOf(file);
        if (side.file !== file) return image?.close();
        side.picture = new FacePicture(image, { width: image?.width ?? 400, height: image?.height ?? 300, faces: [] });
        side.place.replaceChildren(h('h3', {}, side.label), h('div', { class: 'frame' }, side.picture.canvas),
            h('button', {
                type: 'button',
                onclick: () => {
                    side.file = null;
                    ++turn; // an answer that is under way is about a photo that is gone
                    outcome.replaceChildren();
                    offer(side);
                    side.place.querySelector('input').focus();
                },
            }, `Change the ${side.label.toLowerCase()}`));
        compare();
    }

    async function compare() {
        const mine = ++turn;
        outcome.replaceChildren();
        if (!sides.every((side) => side.file)) return;
        outcome.replaceChildren(h('p', { class: 'dim busy' }, 'Comparing\u2026'));
        try {
            const answer = await api.match(sides[0].file, sides[1].file);
            if (mine !== turn) return;
            answer.photos.forEach((photo, i) => sides[i].picture.show(photo));
            show(answer);
        } catch (error) {
            if (mine === turn) outcome.replaceChildren(errorBox(error, compare));
        }
    }

    function show(answer) {
        const reached = answer.steps.filter((step) => step.reached);
        const best = reached.at(-1) ?? answer.steps[0];
        const verdict = answer.verdict[0].toUpperCase() + answer.verdict.slice(1);
        const meaning = reached.length
            ? `Of pairs of different people, fewer than about ${oneIn(best.falseMatchRate)} are this similar.`
            : `Different people are often this similar: "perhaps the same person" begins at ${percent(best.similarity)}.`;
        const several = answer.photos.some((photo) => (photo.faces[0]?.largestOf ?? 1) > 1);
        outcome.replaceChildren(h('div', { class: 'card' },
            h('p', { class: 'verdict' }, verdict),
            h('p', { class: 'similarity' }, `${percent(answer.similarity)} similar`),
            scale(answer), h('p', { class: 'dim' }, meaning),
            answer.kind === 'masked' && h('p', { class: 'dim' }, 'A mask is worn, so the faces were compared as masked ones.'),
            several && h('p', { class: 'dim' }, 'Where a photo shows several faces, the largest one was compared.')));
    }

    sides.forEach(offer);
    root.append(h('p', { class: 'lead' }, 'Do two photos show the same person?'),
        h('div', { class: 'pair' }, sides.map((side) => side.place)), outcome);
    return {
        paste: ([file]) => {
            const side = sides.find((one) => !one.file);
            if (side) set(side, file);
        },
    };
}
