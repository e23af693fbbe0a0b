// The service: requests, the token, and errors in plain words. All that is known of its routes is here.
import { problemText } from './words.js';
import { ask, h } from './ui.js';

const tokenKey = 'veldan-token';

export class ServiceError extends Error {
    constructor(plain, status = 0, problem = {}) {
        super(plain);
        this.plain = plain;
        this.status = status;
        this.problem = problem;
    }
}

export const hasToken = () => sessionStorage.getItem(tokenKey) !== null;

export function forgetToken() {
    sessionStorage.removeItem(tokenKey);
    document.dispatchEvent(new Event('token'));
}

let asking = null;

/** Asks for a token, once for all requests that wait for it. Resolves to whether there is one now. */
function askForToken(refused) {
    asking ??= (async () => {
        const input = h('input', { id: 'token', type: 'password', autocomplete: 'off', spellcheck: 'false', required: true });
        const token = await ask({
            title: 'This server asks for a token',
            body: [
                refused && h('p', { class: 'message bad', role: 'alert' }, 'That token was not accepted.'),
                h('p', {}, 'Whoever runs this server gives tokens out. Yours is kept until you close this tab, and nowhere else.'),
                h('label', { for: 'token' }, 'Token'), input,
            ],
            accept: 'Continue',
            value: () => input.value.trim(),
        });
        if (token) {
            sessionStorage.setItem(tokenKey, token);
            document.dispatchEvent(new Event('token'));
        }
        return Boolean(token);
    })().finally(() => { asking = null; });
    return asking;
}

const pause = (seconds, signal) => new Promise((resolve, reject) => {
    const timer = setTimeout(resolve, seconds * 1000);
    signal?.addEventListener('abort', () => {
        clearTimeout(timer);
        reject(signal.reason);
    }, { once: true });
});

/**
 * One request; resolves to the JSON of the answer, null without one. Throws ServiceError.
 * @param patient waits as often as the server says that it is busy, up to three times
 */
async function request(method, path, { body, type, patient = true, signal } = {}) {
    for (let busy = 0; ;) {
        const token = sessionStorage.getItem(tokenKey);
        const headers = { Accept: 'application/json' };
        if (type) headers['Content-Type'] = type;
        if (token) headers.Authorization = `Bearer ${token}`;
        let answer;
        try {
            answer = await fetch(path, { method, headers, body, signal, cache: 'no-store', credentials: 'omit', redirect: 'error' });
        } catch (error) {
            if (error.name === 'AbortError') throw error;
            throw new ServiceError('The server cannot be reached.');
        }
        const text = await answer.text();
        let json = null;
        try {
            json = text ? JSON.parse(text) : null;
        } catch {
            if (answer.ok) throw new ServiceError('The server gave an answer that makes no sense.', answer.status);
        }
        if (answer.ok) return json;
        if (answer.status === 401) {
            // Another request may have got a token meanwhile.
            const changed = sessionStorage.getItem(tokenKey) !== token;
            if (changed || await askForToken(token !== null)) continue;
        }
        const after = Number(answer.headers.get('Retry-After'));
        if (answer.status === 503 && after && patient && busy++ < 3) {
            await pause(Math.min(after, 10), signal);
            continue;
        }
        throw new ServiceError(problemText(json ?? {}, answer.status), answer.status, json ?? {});
    }
}

const typeOf = (blob) => blob.type || 'application/octet-stream';

const onPhoto = (path) => (blob, options = {}) =>
    request('POST', path, { body: blob, type: typeOf(blob), ...options }).then((answer) => answer.photos[0]);

/** @name Photos: resolve to {width, height, faces, ...} */
export const inspect = onPhoto('/v1/inspect');
export const identify = onPhoto('/v1/identify');

const fileName = (blob, standing) => blob.name || standing;

export function match(first, second) {
    const form = new FormData();
    form.append('a', first, fileName(first, 'first.jpg'));
    form.append('b', second, fileName(second, 'second.jpg'));
    return request('POST', '/v1/match', { body: form });
}

/** @name People, whose names tell them apart */
export const people = () => request('GET', '/v1/people').then((answer) => answer.persons.map(
    ({ name, photos }) => ({ name, photoCount: photos })));

const at = (name, ...rest) => ['/v1/people', name, ...rest].map((part, i) => (i ? encodeURIComponent(part) : part)).join('/');

export const person = (name) => request('GET', at(name)).then((answer) => ({
    name: answer.name,
    photos: answer.photos.map(({ digest, photo, date, quality }) => ({ digest, source: photo, date, quality })),
}));

/** Somebody new. */
export function enrol(name, photo) {
    const form = new FormData();
    form.append('name', name);
    form.append('photo', photo, fileName(photo, 'camera.jpg'));
    return request('POST', '/v1/people', { body: form });
}

export function addPhoto(name, photo) {
    const form = new FormData();
    form.append('photo', photo, fileName(photo, 'camera.jpg'));
    return request('POST', at(name, 'photos'), { body: form });
}

const patch = (name, change) => request('PATCH', at(name), { body: JSON.stringify(change), type: 'application/json' });
export const rename = (name, to) => patch(name, { name: to });
export const merge = (name, into) => patch(name, { name: into, merge: true });

export const removePerson = (name) => request('DELETE', at(name));
export const removePhoto = (name, digest) => request('DELETE', at(name, 'photos', digest));

export const version = () => request('GET', '/v1/version');
