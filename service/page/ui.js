// Small helpers for elements, dialogs and messages; every view uses them.

/** An element; `on...` attributes are listeners, true sets an attribute, false and null leave it out. */
export function h(tag, attributes = {}, ...children) {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) {
        if (value === false || value === null || value === undefined) continue;
        if (name.startsWith('on')) element.addEventListener(name.slice(2), value);
        else element.setAttribute(name, value === true ? '' : value);
    }
    element.append(...children.flat().filter((child) => child !== null && child !== undefined && child !== false));
    return element;
}

export const byId = (id) => document.getElementById(id);

/** Speaks through the page's polite live region. The pause makes a repeated text be read again. */
export function announce(text) {
    const region = byId('announcer');
    region.textContent = '';
    setTimeout(() => { region.textContent = text; }, 50);
}

/** A message at the foot of the page that leaves by itself; also announced. */
export function toast(text) {
    announce(text);
    const note = h('p', { class: 'toast' }, text);
    byId('toasts').replaceChildren(note);
    setTimeout(() => note.remove(), 6000);
}

/** A box with what went wrong. */
export function errorBox(error, retry = null) {
    return h('div', { class: 'message bad', role: 'alert' },
        h('p', {}, error.plain ?? error.message ?? String(error)),
        retry && h('button', { type: 'button', onclick: retry }, 'Try again'));
}

/** A pill with a word; `tone` is good, warn, bad or plain. */
export function badge(text, tone = 'plain') {
    return h('span', { class: `badge ${tone}` }, text);
}

let dialogCount = 0;

/**
 * Shows a dialog and resolves to what was chosen, null when it was cancelled.
 * `body` are elements, `value` is called when the form is submitted.
 */
export function ask({ title, body = [], accept = 'OK', danger = false, value = () => true, focus = null }) {
    const id = `dialog-title-${++dialogCount}`;
    return new Promise((resolve) => {
        let answer = null;
        const cancel = h('button', { type: 'button', onclick: () => dialog.close() }, 'Cancel');
        const form = h('form', {
            onsubmit: (event) => {
                event.preventDefault();
                answer = value();
                dialog.close();
            },
        }, h('h2', { id }, title), body,
        h('div', { class: 'actions' }, cancel,
            h('button', { type: 'submit', class: danger ? 'danger' : 'primary' }, accept)));
        const dialog = h('dialog', { 'aria-labelledby': id }, form);
        dialog.addEventListener('close', () => {
            dialog.remove();
            resolve(answer);
        });
        document.body.append(dialog);
        dialog.showModal();
        (focus ?? (danger ? cancel : form.querySelector('input, select, button.primary')))?.focus();
    });
}

export const plural = (count, one, many = `${one}s`) => `${count} ${count === 1 ? one : many}`;

export const clock = (time) => new Date(time).toLocaleTimeString([], { hour: '2-digit', minute: '2-digit', second: '2-digit' });

/** "12 s", "3 min", "1 h 5 min". */
export function duration(milliseconds) {
    const seconds = Math.round(milliseconds / 1000);
    if (seconds < 100) return `${seconds} s`;
    const minutes = Math.round(seconds / 60);
    return minutes < 60 ? `${minutes} min` : `${Math.floor(minutes / 60)} h ${minutes % 60} min`;
}

/** A zone where photos are dropped or chosen; `take` gets the array of files. */
export function dropZone({ text, multiple = false, take, small = false, label }) {
    const input = h('input', {
        type: 'file', accept: 'image/*,.heic,.heif,.avif', multiple, class: 'visually-hidden', 'aria-label': label ?? text,
        onchange: () => {
            const files = [...input.files];
            input.value = ''; // so that the same file can be chosen again
            if (files.length) take(files);
        },
    });
    const zone = h('label', { class: small ? 'drop small' : 'drop' }, input,
        h('span', { class: 'drop-text', 'aria-hidden': 'true' }, text));
    zone.addEventListener('dragover', (event) => {
        event.preventDefault();
        zone.classList.add('over');
    });
    zone.addEventListener('dragleave', () => zone.classList.remove('over'));
    zone.addEventListener('drop', (event) => {
        event.preventDefault();
        zone.classList.remove('over');
        const files = [...event.dataTransfer.files];
        if (files.length) take(multiple ? files : files.slice(0, 1));
    });
    return zone;
}
