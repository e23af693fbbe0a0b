// Where the labels of faces go, so that none covers another.

const gap = 4;

const overlap = (a, b) => a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height && b.y < a.y + a.height;

function candidates(box, size) {
    const right = box.x + box.width;
    const bottom = box.y + box.height;
    const places = [
        [box.x, box.y - size.height - gap],
        [box.x, bottom + gap],
        [right - size.width, box.y - size.height - gap],
        [right - size.width, bottom + gap],
        [right + gap, box.y],
        [box.x - size.width - gap, box.y],
        [right + gap, bottom - size.height],
        [box.x - size.width - gap, bottom - size.height],
        [box.x + gap, box.y + gap],
        [box.x + gap, bottom - size.height - gap],
        [right - size.width - gap, box.y + gap],
        [right - size.width - gap, bottom - size.height - gap],
    ];
    return places.map(([x, y]) => ({ x, y, width: size.width, height: size.height }));
}

const inside = (rectangle, area) => rectangle.x >= 0 && rectangle.y >= 0 &&
    rectangle.x + rectangle.width <= area.width && rectangle.y + rectangle.height <= area.height;

// Keeps a label that leans over the edge by moving it sideways.
function moved(rectangle, area) {
    const x = Math.max(0, Math.min(rectangle.x, area.width - rectangle.width));
    const y = rectangle.y;
    return { ...rectangle, x, y };
}

function place(index, boxes, size, area, placed, coverFaces) {
    const own = boxes[index];
    for (const candidate of candidates(own, size)) {
        const label = moved(candidate, area);
        if (!inside(label, area) || placed.some((other) => other && overlap(label, other))) continue;
        const covered = boxes.some((box, i) => overlap(label, box) && (i !== index || size.height > own.height / 3));
        if (covered && !coverFaces) continue;
        return label;
    }
    return null;
}

/**
 * Places a label for each face.
 * @param boxes of the faces: x, y, width, height
 * @param variants of each label, richest first: {width, height}
 * @param area {width, height} that labels stay in
 * @returns for each face {x, y, width, height, variant}, or null where there is no room
 */
export function placeLabels(boxes, variants, area) {
    const levels = Math.max(0, ...variants.map((sizes) => sizes.length));
    // A picture looks calm when all its labels are of one kind, so the richest that fits everywhere is taken.
    for (let level = 0; level < levels; ++level) {
        const placed = [];
        for (let i = 0; i < boxes.length; ++i) {
            const label = place(i, boxes, variants[i][level], area, placed, false);
            if (!label) break;
            placed.push({ ...label, variant: level });
        }
        if (placed.length === boxes.length) return placed;
    }
    const placed = [];
    for (let i = 0; i < boxes.length; ++i) {
        let found = null;
        for (const coverFaces of [false, true])
            for (let level = 1; level < variants[i].length && !found; ++level) {
                const label = place(i, boxes, variants[i][level], area, placed, coverFaces);
                if (label) found = { ...label, variant: level };
            }
        placed.push(found);
    }
    return placed;
}
