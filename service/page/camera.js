// The camera, and frames of it one at a time.
import { h } from './ui.js';

const reasons = {
    NotAllowedError: 'The browser was not allowed to use the camera. Allow it in the address bar and try again.',
    NotFoundError: 'No camera was found.',
    OverconstrainedError: 'No camera was found.',
    NotReadableError: 'The camera is used by another program.',
};

export class Camera {
    constructor(video) {
        this.video = video;
        this.stream = null;
        this.mirror = false;
        this.starts = 0;
        this.shot = document.createElement('canvas');
    }

    /** Starts; throws an error whose `plain` says why not. Resolves to whether nobody has stopped it meanwhile. */
    async start(deviceId = '') {
        this.stop();
        const mine = this.starts;
        if (!navigator.mediaDevices)
            throw Object.assign(new Error('no camera'), {
                plain: 'Browsers offer the camera on secure pages only: open this page over https, or on this machine itself.',
            });
        const size = { width: { ideal: 1280 }, height: { ideal: 720 } };
        const wanted = deviceId ? { deviceId: { exact: deviceId }, ...size } : { facingMode: 'user', ...size };
        let stream;
        try {
            stream = await navigator.mediaDevices.getUserMedia({ video: wanted, audio: false });
        } catch (error) {
            throw Object.assign(error, { plain: reasons[error.name] ?? 'The camera did not start.' });
        }
        if (mine !== this.starts) {
            stream.getTracks().forEach((track) => track.stop());
            return false;
        }
        this.stream = stream;
        const settings = this.stream.getVideoTracks()[0].getSettings();
        this.deviceId = settings.deviceId ?? '';
        // People expect a mirror of themselves, not of what is in front of them.
        this.mirror = settings.facingMode !== 'environment';
        this.video.classList.toggle('mirror', this.mirror);
        this.video.srcObject = this.stream;
        await this.video.play().catch(() => {}); // stopped before it began
        if (mine !== this.starts) return false;
        // The whole picture fits on the screen, whichever way the camera is held.
        this.video.style.maxWidth = `${60 * this.video.videoWidth / this.video.videoHeight}vh`;
        await this.started?.();
        return mine === this.starts;
    }

    /** Which camera it is, for people to change; hidden where there is but one. `failed` is called when the other does not start. */
    chooser(failed) {
        const select = h('select', {
            'aria-label': 'Camera', hidden: true,
            onchange: () => this.start(select.value).catch(failed),
        });
        this.started = async () => {
            const devices = (await navigator.mediaDevices.enumerateDevices()).filter(({ kind }) => kind === 'videoinput');
            select.replaceChildren(...devices.map(({ deviceId, label }, i) =>
                h('option', { value: deviceId, selected: deviceId === this.deviceId }, label || `Camera ${i + 1}`)));
            select.hidden = devices.length < 2;
        };
        return select;
    }

    stop() {
        ++this.starts;
        this.stream?.getTracks().forEach((track) => track.stop());
        this.stream = null;
        this.video.srcObject = null;
    }

    /** The present frame as JPEG, at most `longest` pixels on its longer side; null when there is none yet. */
    async frame(longest, quality = 0.85) {
        const { videoWidth, videoHeight } = this.video;
        if (!videoWidth) return null;
        const scale = Math.min(1, longest / Math.max(videoWidth, videoHeight));
        this.shot.width = Math.round(videoWidth * scale);
        this.shot.height = Math.round(videoHeight * scale);
        this.shot.getContext('2d').drawImage(this.video, 0, 0, this.shot.width, this.shot.height);
        return new Promise((resolve) => this.shot.toBlob(resolve, 'image/jpeg', quality));
    }
}

/**
 * Calls `work` with frame after frame until it is stopped. One frame is under way at a time; what the camera shows
 * meanwhile is never sent, so a slow server sees fewer frames and no queue.
 */
export class FrameLoop {
    constructor(camera, work, { longest = 640, perSecond = 10 } = {}) {
        this.camera = camera;
        this.work = work;
        this.longest = longest;
        this.pause = 1000 / perSecond;
        this.on = false;
    }

    async run() {
        this.on = true;
        while (this.on) {
            const begin = performance.now();
            let wait = this.pause;
            const blob = document.hidden ? null : await this.camera.frame(this.longest);
            if (blob && this.on) wait = (await this.work(blob)) ?? this.pause;
            await new Promise((resolve) => setTimeout(resolve, Math.max(0, wait - (performance.now() - begin))));
        }
    }

    stop() {
        this.on = false;
    }
}
