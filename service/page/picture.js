// Faces drawn over a picture, on a canvas that is as sharp as the screen.
import { placeLabels } from './labels.js';
import { nameOf, pictureText, shortWords } from './words.js';

const font = '"Segoe UI", system-ui, -apple-system, "DejaVu Sans", sans-serif';
const titleFont = `600 13px ${font}`;
const wordsFont = `12px ${font}`;
const lineHeight = 17;
const padding = 6;
const longestName = 24;

/** Teal: known. Amber: unknown, or not live. Blue: nobody was asked who it is. */
function colourOf(face) {
    if (face.name === undefined) return '#4c8dff';
    return face.name === null || face.live === false ? '#f0a12b' : '#23b48a';
}

/** A name that leaves something of the picture to be seen. */
function shortened(name) {
    const letters = [...name];
    return letters.length > longestName ? `${letters.slice(0, longestName - 1).join('').trim()}\u2026` : name;
}

function variantsOf(context, face, number, alone) {
    const called = face.name === undefined ? 'Face' : shortened(nameOf(face));
    const title = alone ? called : `${number}  ${called}`;
    const words = shortWords(face);
    const sized = (lines) => {
        let width = 0;
        lines.forEach((line, i) => {
            context.font = i === 0 ? titleFont : wordsFont;
            width = Math.max(width, context.measureText(line).width);
        });
        return { lines, width: Math.ceil(width) + 2 * padding, height: lines.length * lineHeight + padding };
    };
    if (alone && face.name === undefined && words) return [sized([words])];
    return [...(words ? [sized([title, words])] : []), sized([title]), sized([String(number)])];
}

/** Draws faces; `scale` leads from the photo's pixels to the area's, `mirror` turns left and right around. */
function drawFaces(context, faces, area, scale, { selected = -1, mirror = false } = {}) {
    const boxes = faces.map(({ box }) => ({
        x: mirror ? area.width - (box.x + box.width) * scale : box.x * scale,
        y: box.y * scale,
        width: box.width * scale,
        height: box.height * scale,
    }));
    boxes.forEach((box, i) => {
        const wide = i === selected ? 4 : 2;
        for (const [width, colour] of [[wide + 2, 'rgba(0, 0, 0, 0.45)'], [wide, colourOf(faces[i])]]) {
            context.beginPath();
            context.roundRect(box.x, box.y, box.width, box.height, 6);
            context.lineWidth = width;
            context.strokeStyle = colour;
            context.stroke();
        }
    });
    const variants = faces.map((face, i) => variantsOf(context, face, i + 1, faces.length === 1));
    const labels = placeLabels(boxes, variants, area);
    context.textBaseline = 'middle';
    labels.forEach((label, i) => {
        if (!label) return;
        context.beginPath();
        context.roundRect(label.x, label.y, label.width, label.height, 5);
        context.fillStyle = 'rgba(13, 20, 30, 0.82)';
        context.fill();
        context.fillStyle = colourOf(faces[i]);
        context.fillRect(label.x, label.y + 4, 3, label.height - 8);
        variants[i][label.variant].lines.forEach((line, k) => {
            context.font = k === 0 ? titleFont : wordsFont;
            context.fillStyle = k === 0 ? '#ffffff' : '#d5dce6';
            context.fillText(line, label.x + padding + 1, label.y + padding / 2 + lineHeight * (k + 0.5));
        });
    });
    return labels;
}

/** Draws the faces of a frame over the video that it was taken from; without a frame, nothing. */
export function drawOver(overlay, video, photo, mirror) {
    const density = Math.min(window.devicePixelRatio || 1, 2);
    overlay.width = Math.round(overlay.clientWidth * density);
    overlay.height = Math.round(overlay.clientHeight * density);
    if (!photo) return;
    const context = overlay.getContext('2d');
    context.setTransform(density, 0, 0, density, video.offsetLeft * density, video.offsetTop * density);
    const area = { width: video.clientWidth, height: video.clientHeight };
    drawFaces(context, photo.faces, area, area.width / photo.width, { mirror });
}

/** A canvas that shows an image and its faces, and draws itself anew when its size changes. */
export class FacePicture {
    /** @param image a bitmap, or null where the browser cannot show the file */
    constructor(image, photo) {
        this.image = image;
        this.photo = photo;
        this.selected = -1;
        this.canvas = document.createElement('canvas');
        this.canvas.className = 'picture';
        this.canvas.setAttribute('role', 'img');
        this.canvas.width = photo.width;
        this.canvas.height = photo.height;
        // Portraits must not be taller than a screen.
        this.canvas.style.maxWidth = `${32 * photo.width / photo.height}rem`;
        this.observer = new ResizeObserver(() => this.draw());
        this.observer.observe(this.canvas);
        this.describe();
    }

    describe() {
        this.canvas.setAttribute('aria-label', pictureText(this.photo));
    }

    select(index) {
        this.selected = index;
        this.draw();
    }

    show(photo) {
        this.photo = photo;
        this.describe();
        this.draw();
    }

    draw() {
        const width = this.canvas.clientWidth;
        if (!width) return;
        const scale = width / this.photo.width;
        const area = { width, height: this.photo.height * scale };
        const density = Math.min(window.devicePixelRatio || 1, 3);
        const pixels = Math.round(width * density);
        if (this.canvas.width !== pixels) {
            this.canvas.width = pixels;
            this.canvas.height = Math.round(area.height * density);
        }
        const context = this.canvas.getContext('2d');
        context.setTransform(density, 0, 0, density, 0, 0);
        if (this.image) context.drawImage(this.image, 0, 0, area.width, area.height);
        else {
            context.fillStyle = '#46505e';
            context.fillRect(0, 0, area.width, area.height);
        }
        this.labels = drawFaces(context, this.photo.faces ?? [], area, scale, { selected: this.selected });
    }

    close() {
        this.observer.disconnect();
        this.image?.close?.();
    }
}

/** The picture in a file, upright as its EXIF data tell; null where the browser cannot read it. */
export async function bitmapOf(file) {
    try {
        return await createImageBitmap(file, { imageOrientation: 'from-image' });
    } catch {
        return null;
    }
}

/** A square cut around a face, as a canvas. */
export function faceCrop(image, box, size = 160) {
    const canvas = document.createElement('canvas');
    canvas.width = size;
    canvas.height = size;
    const side = Math.min(Math.max(box.width, box.height) * 1.5, image.width, image.height);
    const x = Math.max(0, Math.min(box.x + box.width / 2 - side / 2, image.width - side));
    const y = Math.max(0, Math.min(box.y + box.height / 2 - side / 2, image.height - side));
    const context = canvas.getContext('2d');
    context.imageSmoothingQuality = 'high';
    context.drawImage(image, x, y, side, side, 0, 0, size, size);
    return canvas;
}
