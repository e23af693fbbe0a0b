// The camera, and frames of it one at a time.

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
        this.shot = document.createElement('canvas');
    }

    get running() {
        return this.stream !== null;
    }

    /** Starts; throws an error whose `plain` says why not. */
    async start(deviceId = '') {
        this.stop();
        if (!navigator.mediaDevices)
            throw Object.assign(new Error('no camera'), {
                plain: 'Browsers offer the camera on secure pages only: open this page over https, or on this machine itself.',
            });
        const size = { width: { ideal: 1280 }, height: { ideal: 720 } };
        const wanted = deviceId ? { deviceId: { exact: deviceId }, ...size } : { facingMode: 'user', ...size };
        try {
            this.stream = await navigator.mediaDevices.getUserMedia({ video: wanted, audio: false });
        } catch (error) {
            throw Object.assign(error, { plain: reasons[error.name] ?? 'The camera did not start.' });
        }
        const settings = this.stream.getVideoTracks()[0].getSettings();
        this.deviceId = settings.deviceId ?? '';
        // People expect a mirror of themselves, not of what is in front of them.
        this.mirror = settings.facingMode !== 'environment';
        this.video.classList.toggle('mirror', this.mirror);
        this.video.srcObject = this.stream;
        await this.video.play();
        // The whole picture fits on the screen, whichever way the camera is held.
        this.video.style.maxWidth = `${60 * this.video.videoWidth / this.video.videoHeight}vh`;
    }

    stop() {
        this.stream?.getTracks().forEach((track) => track.stop());
        this.stream = null;
        this.video.srcObject = null;
    }

    /** [{id, label}] of all cameras; labels are there once a camera was allowed. */
    static async list() {
        const devices = (await navigator.mediaDevices?.enumerateDevices()) ?? [];
        return devices.filter((device) => device.kind === 'videoinput')
            .map((device, i) => ({ id: device.deviceId, label: device.label || `Camera ${i + 1}` }));
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
