// The page: which view is shown, and what all views share.
import * as api from './api.js';
import { byId } from './ui.js';
import { photosView } from './photos.js';
import { compareView } from './compare.js';
import { peopleView } from './people.js';
import { liveView } from './live.js';

const makers = { photos: photosView, compare: compareView, people: peopleView, live: liveView };
const titles = { photos: 'Photos', compare: 'Compare', people: 'People', live: 'Live' };
const views = new Map();
let current = null;

function show() {
    const [wanted, ...rest] = location.hash.slice(1).split('/');
    const name = makers[wanted] ? wanted : 'photos';
    if (current) views.get(current).leave?.();
    for (const key of Object.keys(makers)) byId(`view-${key}`).hidden = key !== name;
    for (const link of document.querySelectorAll('nav a'))
        if (link.hash === `#${name}`) link.setAttribute('aria-current', 'page');
        else link.removeAttribute('aria-current');
    const root = byId(`content-${name}`);
    if (!views.has(name)) views.set(name, makers[name](root));
    document.title = `${titles[name]} \u00b7 Veldan`;
    const moved = current !== null && current !== name;
    current = name;
    if (moved) byId(`heading-${name}`).focus();
    views.get(name).enter?.(rest.join('/'));
}

addEventListener('hashchange', show);
byId('skip').addEventListener('click', (event) => {
    event.preventDefault(); // the part of the address after # says which view is shown
    byId('main-content').focus();
});
addEventListener('pagehide', () => views.get(current)?.leave?.());
// A photo that is dropped beside a zone must not take the place of the page.
for (const kind of ['dragover', 'drop']) addEventListener(kind, (event) => event.preventDefault());
addEventListener('paste', (event) => {
    const files = [...(event.clipboardData?.files ?? [])].filter((file) => file.type.startsWith('image/'));
    if (files.length && !document.querySelector('dialog[open]')) views.get(current).paste?.(files);
});

const forget = byId('forget-token');
forget.addEventListener('click', () => {
    api.forgetToken();
    location.reload();
});
document.addEventListener('token', () => { forget.hidden = !api.hasToken(); });
forget.hidden = !api.hasToken();

show();
api.version().then((answer) => { byId('version').textContent = `Veldan ${answer.veldan}`; }, () => {});
