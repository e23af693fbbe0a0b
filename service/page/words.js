// What the service says, in plain words.
import { badge } from './ui.js';

const byCode = {
    unreadable: 'This file is not a picture that can be read.',
    too_small: 'This picture is too small: 100 pixels on each side are needed.',
    too_many_faces: 'There are more than 100 faces in this picture.',
    gallery: 'The gallery of faces cannot be used at the moment.',
    library: 'The face library did not start on the server.',
};

const byStatus = {
    400: 'The server could not make sense of the request.',
    401: 'This server asks for a token.',
    403: 'Your token does not allow this.',
    404: 'That does not exist any more.',
    405: 'This server does not offer that.',
    408: 'The upload took too long.',
    409: 'Somebody of that name is enrolled already.',
    411: 'The server could not make sense of the request.',
    413: 'This picture is too large for the server.',
    415: 'This file is not a picture that can be read.',
    422: 'This photo does not serve.',
    429: 'Too many failed attempts. Please wait a moment.',
    500: 'Something went wrong on the server.',
    503: 'The server is busy. Please try again in a moment.',
};

const sentence = (text) => {
    const trimmed = text.trim();
    if (!trimmed) return '';
    const upper = trimmed[0].toUpperCase() + trimmed.slice(1);
    return /[.!?]$/.test(upper) ? upper : `${upper}.`;
};

/** A problem document of the service as one or two sentences. */
export function problemText(problem, status) {
    const general = byCode[problem.code] ?? byStatus[status] ?? 'The server answered with an error.';
    const detail = sentence(problem.detail ?? problem.title ?? '');
    // What the server says about a person or a face is more exact; what it says of requests means little to people.
    if (!byCode[problem.code] && [404, 422].includes(status) && detail) return detail;
    if (status === 403 && detail) return `${general} ${detail}`;
    return general;
}

export const percent = (similarity) => `${Math.round(similarity * 100)}%`;

export const nameOf = (face) => face.name ?? 'Unknown';

/** The words below a name on a picture. */
export function shortWords(face) {
    const words = [];
    if (face.quality !== undefined) words.push(`quality ${face.quality}`);
    if (face.masked !== undefined) words.push(face.masked ? 'mask' : 'no mask');
    if (face.live !== undefined) words.push(face.live ? 'live' : 'not live');
    return words.join(' \u00b7 ');
}

/** What is known of a face, as pills. */
export function faceBadges(face) {
    const badges = [];
    if (face.quality !== undefined)
        badges.push(badge(`Quality ${face.quality}`, face.quality >= 70 ? 'good' : face.quality >= 40 ? 'plain' : 'warn'));
    if (face.masked !== undefined) badges.push(badge(face.masked ? 'Mask' : 'No mask'));
    if (face.live !== undefined)
        badges.push(badge(face.live ? `Live ${face.liveness}` : `Not live ${face.liveness}`, face.live ? 'good' : 'warn'));
    if (face.sharp === false) badges.push(badge('Not sharp', 'warn'));
    if (face.frontal === false) badges.push(badge('Not frontal'));
    return badges;
}

/** One line about a picture for those who do not see it. */
export function pictureText(photo) {
    const faces = photo.faces ?? [];
    if (faces.length === 0) return 'Photo without a face';
    const names = faces.map((face, i) => (face.name === undefined ? `face ${i + 1}` : nameOf(face)));
    return `Photo with ${faces.length === 1 ? 'one face' : `${faces.length} faces`}: ${names.join(', ')}`;
}

/** Why a face does not serve for enrolment yet, or null; `frame` has width and height. */
export function enrolmentHint(faces, frame) {
    if (faces.length === 0) return { text: 'Look into the camera', good: false };
    if (faces.length > 1) return { text: 'One person at a time, please', good: false };
    const face = faces[0];
    const { x, y, width, height } = face.box;
    if (height < frame.height * 0.28) return { text: 'Come closer', good: false };
    if (x < 0 || y < 0 || x + width > frame.width || y + height > frame.height)
        return { text: 'Move back a little, to the middle', good: false };
    if (face.masked) return { text: 'Take off the mask', good: false };
    if (face.quality < 40) return { text: 'Find better light and hold still', good: false };
    if (!face.frontal) return { text: 'Turn to the camera', good: false, usable: true };
    if (!face.sharp) return { text: 'Hold still', good: false, usable: true };
    return { text: 'Good. Hold still', good: true, usable: true };
}
