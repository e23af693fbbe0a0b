// The people of the gallery: list, one person, and what can be done with them.
import * as api from './api.js';
import * as thumbs from './thumbs.js';
import { ask, errorBox, h, plural, toast } from './ui.js';
import { enrolView } from './enrol.js';

const mostShown = 300; // a longer list is searched, not read
const compareNames = new Intl.Collator().compare;

/** The parts of an address, none when somebody mistyped it. */
function parts(address) {
    try {
        return address.split('/').map(decodeURIComponent);
    } catch {
        return [];
    }
}

/** The kept picture of a person, or the initials. */
function portrait(person, large = false) {
    const place = h('span', { class: large ? 'portrait large' : 'portrait', 'aria-hidden': 'true' },
        person.name.split(/\s+/).filter(Boolean).slice(0, 2).map((word) => [...word][0].toUpperCase()).join(''));
    thumbs.find(person.name).then(async (blob) => {
        if (!blob) return;
        const image = await createImageBitmap(blob);
        const canvas = h('canvas', { width: image.width, height: image.height });
        canvas.getContext('2d').drawImage(image, 0, 0);
        place.replaceChildren(canvas);
    });
    return place;
}

const go = (hash) => { location.hash = hash; };
const addressOf = (name, what = 'of') => `#people/${what}/${encodeURIComponent(name)}`;

async function renameDialog(person) {
    const input = h('input', { id: 'new-name', type: 'text', required: true, maxlength: '200', autocomplete: 'off', value: person.name });
    const name = await ask({
        title: `Rename ${person.name}`, body: [h('label', { for: 'new-name' }, 'New name'), input], accept: 'Rename', focus: input,
        value: () => input.value.trim(),
    });
    if (!name || name === person.name) return false;
    await api.rename(person.name, name);
    await thumbs.renamed(person.name, name);
    toast(`${person.name} is now ${name}`);
    go(addressOf(name));
    return true;
}

async function mergeDialog(person, others) {
    const select = h('select', { id: 'merge-into' }, others.map((other) => h('option', { value: other.name }, other.name)));
    const into = await ask({
        title: `Merge ${person.name} into somebody else`,
        body: [
            h('p', {}, `Use this when one person was enrolled under two names. The photos of ${person.name} go to the person below, and the name ${person.name} is gone.`),
            h('label', { for: 'merge-into' }, 'Merge into'), select,
        ],
        accept: 'Merge', focus: select, value: () => select.value,
    });
    if (!into) return false;
    await api.merge(person.name, into);
    await thumbs.drop(person.name);
    toast(`${person.name} was merged into ${into}`);
    go(addressOf(into));
    return true;
}

async function deleteDialog(person) {
    const sure = await ask({
        title: `Delete ${person.name}?`, danger: true, accept: 'Delete',
        body: [h('p', {}, `${plural(person.photos.length, 'photo')} of ${person.name} will be overwritten in the gallery. This cannot be undone.`)],
    });
    if (!sure) return false;
    await api.removePerson(person.name);
    await thumbs.drop(person.name);
    toast(`${person.name} was deleted`);
    go('#people');
    return true;
}

export function peopleView(root) {
    let shown = 0; // counts what was asked for, so that late answers are thrown away
    let enrolment = null;

    async function list() {
        const mine = ++shown;
        const names = h('ul', { class: 'people' });
        const status = h('p', { class: 'dim', role: 'status' });
        const filter = h('input', { type: 'search', 'aria-label': 'Find a name', placeholder: 'Find a name', autocomplete: 'off', oninput: () => fill() });
        let people = [];

        function fill() {
            const wanted = filter.value.trim().toLowerCase();
            const found = people.filter((person) => person.name.toLowerCase().includes(wanted));
            names.replaceChildren(...found.slice(0, mostShown).map((person) => h('li', {},
                h('a', { class: 'person', href: addressOf(person.name) }, portrait(person),
                    h('span', { class: 'person-text' }, h('span', { class: 'person-name' }, person.name),
                        h('span', { class: 'dim' }, plural(person.photoCount, 'photo')))))));
            status.textContent = wanted && !found.length ? 'Nobody has such a name.' : plural(found.length, 'person', 'people') +
                (found.length > mostShown ? `; the first ${mostShown} are shown` : '');
        }

        root.replaceChildren(
            h('p', { class: 'lead' }, 'Who is known here.'),
            h('div', { class: 'row' }, h('a', { class: 'button primary', href: '#people/new' }, 'Enrol a person'), filter), status, names);
        status.textContent = 'Asking the server\u2026';
        try {
            people = await api.people();
        } catch (error) {
            if (mine === shown) status.replaceWith(errorBox(error, list));
            return;
        }
        if (mine !== shown) return;
        people.sort((a, b) => compareNames(a.name, b.name));
        await thumbs.prune(people);
        if (!people.length) {
            filter.hidden = true;
            status.textContent = 'Nobody is enrolled yet.';
            return;
        }
        fill();
        const kept = await thumbs.count();
        if (kept && mine === shown)
            root.append(h('p', { class: 'dim small-print' }, `${plural(kept, 'small picture')} ${kept === 1 ? 'is' : 'are'} kept in this browser. `,
                h('button', {
                    type: 'button', class: 'link',
                    onclick: async () => {
                        await thumbs.dropAll();
                        toast('The pictures were removed from this browser');
                        list();
                    },
                }, 'Remove kept pictures')));
    }

    async function one(name) {
        const mine = ++shown;
        root.replaceChildren(h('p', { class: 'dim busy', role: 'status' }, 'Asking the server\u2026'));
        let person;
        let people;
        try {
            [person, people] = await Promise.all([api.person(name), api.people()]);
        } catch (error) {
            if (mine === shown) root.replaceChildren(back(), errorBox(error, () => one(name)));
            return;
        }
        if (mine !== shown) return;
        const others = people.filter((other) => other.name !== person.name).sort((a, b) => compareNames(a.name, b.name));
        const trouble = h('div', {});
        // Runs a dialog; `again` when the person is still there to be shown.
        const acting = (act, again) => async () => {
            trouble.replaceChildren();
            try {
                if (await act() && again) one(name);
            } catch (error) {
                trouble.replaceChildren(errorBox(error));
            }
        };
        const photos = h('ul', { class: 'photos' }, person.photos.map((photo) => h('li', { class: 'photo' },
            h('span', { class: 'photo-name' }, photo.source),
            h('span', { class: 'dim' }, `${photo.quality ? `quality ${photo.quality}, ` : ''}${new Date(photo.date).toLocaleDateString()}`),
            h('button', {
                type: 'button', class: 'link', disabled: person.photos.length < 2, 'aria-label': `Delete the photo ${photo.source}`,
                onclick: acting(async () => {
                    const sure = await ask({
                        title: 'Delete this photo?', danger: true, accept: 'Delete',
                        body: [h('p', {}, `${photo.source} will no longer help to recognise ${person.name}.`)],
                    });
                    if (!sure) return false;
                    await api.removePhoto(person.name, photo.digest);
                    toast('The photo was deleted');
                    return true;
                }, true),
            }, 'Delete'))));
        const heading = h('h2', { tabindex: '-1' }, person.name);
        root.replaceChildren(back(),
            h('div', { class: 'person-head' }, portrait(person, true), h('div', {}, heading,
                h('p', { class: 'dim' }, plural(person.photos.length, 'photo')))),
            h('div', { class: 'row' },
                h('a', { class: 'button', href: addressOf(person.name, 'add') }, 'Add photos'),
                h('button', { type: 'button', onclick: acting(() => renameDialog(person), false) }, 'Rename\u2026'),
                h('button', { type: 'button', disabled: !others.length, onclick: acting(() => mergeDialog(person, others), false) }, 'Merge\u2026'),
                h('button', { type: 'button', class: 'danger', onclick: acting(() => deleteDialog(person), false) }, 'Delete\u2026')),
            trouble,
            h('section', { class: 'card' }, h('h3', {}, 'Enrolled photos'), photos,
                h('p', { class: 'dim small-print' },
                    'The gallery keeps what describes the face, not the photos. More photos in different light make recognition better.')));
        heading.focus();
    }

    const back = () => h('p', { class: 'back' }, h('a', { href: '#people' }, '\u2190 All people'));

    async function enrol(name) {
        const mine = ++shown;
        let person = null;
        if (name !== null) {
            try {
                person = await api.person(name);
            } catch (error) {
                if (mine === shown) root.replaceChildren(back(), errorBox(error, () => enrol(name)));
                return;
            }
        }
        if (mine !== shown) return;
        root.replaceChildren(back());
        enrolment = enrolView(root, person, (enrolled) => go(addressOf(enrolled)));
    }

    return {
        /** What follows "#people/" decides what is shown. */
        enter: (rest) => {
            const [what, name] = parts(rest);
            if (what === 'new') enrol(null);
            else if (what === 'add' && name) enrol(name);
            else if (what === 'of' && name) one(name);
            else list();
        },
        leave: () => {
            ++shown;
            enrolment?.leave();
            enrolment = null;
        },
        paste: (files) => enrolment?.paste(files),
    };
}
