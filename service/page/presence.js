// Who came and who went, from the names that frame after frame tells.

/** Counts somebody as there after two sightings close together, and as gone after a while without one. */
export class Presence {
    constructor({ arrive = 2, within = 1500, leave = 3000 } = {}) {
        this.arrive = arrive;
        this.within = within;
        this.leave = leave;
        this.people = new Map(); // name -> {first, last, sightings, here}
    }

    /** Takes the names of one frame and its time in milliseconds; returns [{name, what: 'came' or 'went', time, stayed}]. */
    see(names, now) {
        const events = [];
        for (const name of new Set(names)) {
            let person = this.people.get(name);
            if (!person || (!person.here && now - person.last > this.within)) {
                person = { first: now, last: now, sightings: 0, here: false };
                this.people.set(name, person);
            }
            person.last = now;
            if (++person.sightings >= this.arrive && !person.here) {
                person.here = true;
                events.push({ name, what: 'came', time: person.first });
            }
        }
        for (const [name, person] of this.people)
            if (now - person.last > (person.here ? this.leave : this.within)) {
                if (person.here) events.push({ name, what: 'went', time: person.last, stayed: person.last - person.first });
                this.people.delete(name);
            }
        return events;
    }

    /** Everybody leaves, as when the camera is switched off. */
    end() {
        const events = [];
        for (const [name, person] of this.people)
            if (person.here) events.push({ name, what: 'went', time: person.last, stayed: person.last - person.first });
        this.people.clear();
        return events;
    }

    here() {
        return [...this.people].filter(([, person]) => person.here).map(([name]) => name);
    }
}
