// One photo from the camera, in a dialog.
import { Camera } from './camera.js';
import { errorBox, h } from './ui.js';

/** Resolves to a JPEG blob, or null. */
export function shoot(title) {
    return new Promise((resolve) => {
        let photo = null;
        const video = h('video', { class: 'live-picture', muted: true, playsinline: true, 'aria-label': 'What the camera sees' });
        video.muted = true;
        const camera = new Camera(video);
        const take = h('button', {
            type: 'button', class: 'primary', disabled: true,
            onclick: async () => {
                photo = await camera.frame(1280, 0.92);
                dialog.close();
            },
        }, 'Take the photo');
        const place = h('div', { class: 'frame' }, video);
        const dialog = h('dialog', { 'aria-label': title, class: 'wide' }, h('h2', {}, title), place,
            h('div', { class: 'actions' }, camera.chooser((error) => place.replaceChildren(errorBox(error))), h('button', { type: 'button', onclick: () => dialog.close() }, 'Cancel'), take));
        dialog.addEventListener('close', () => {
            camera.stop();
            dialog.remove();
            resolve(photo);
        });
        document.body.append(dialog);
        dialog.showModal();
        camera.start().then((on) => {
            if (!on) return;
            take.disabled = false;
            take.focus();
        }, (error) => place.replaceChildren(errorBox(error)));
    });
}
