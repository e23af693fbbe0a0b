// Small pictures of faces, kept in this browser and only where somebody asked for it. The server never has them.

let opened = null;

function database() {
    opened ??= new Promise((resolve, reject) => {
        const request = indexedDB.open('veldan', 1);
        request.onupgradeneeded = () => request.result.createObjectStore('thumbnails');
        request.onsuccess = () => resolve(request.result);
        request.onerror = () => reject(request.error);
    });
    return opened;
}

async function transact(mode, work) {
    try {
        const store = (await database()).transaction('thumbnails', mode).objectStore('thumbnails');
        return await new Promise((resolve, reject) => {
            const request = work(store);
            request.onsuccess = () => resolve(request.result);
            request.onerror = () => reject(request.error);
        });
    } catch {
        return null; // private windows may have no storage: the page goes on without pictures
    }
}

export const keep = (name, blob) => transact('readwrite', (store) => store.put(blob, name));
export const drop = (name) => transact('readwrite', (store) => store.delete(name));
export const dropAll = () => transact('readwrite', (store) => store.clear());
export const count = async () => (await transact('readonly', (store) => store.count())) ?? 0;

/** The picture of a person, or null. */
export const find = async (name) => (await transact('readonly', (store) => store.get(name))) ?? null;

export async function renamed(name, to) {
    const kept = await find(name);
    if (!kept) return;
    await keep(to, kept);
    await drop(name);
}

/** Forgets the pictures of those who are not in the list any more. */
export async function prune(people) {
    const names = new Set(people.map((person) => person.name));
    for (const name of (await transact('readonly', (store) => store.getAllKeys())) ?? []) if (!names.has(name)) await drop(name);
}
