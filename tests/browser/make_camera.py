"""Makes what the browser's fake camera shows, and photos that the tests need, from the example photos.

usage: make_camera.py PHOTOS FOLDER"""
import pathlib
import sys

import cv2
import numpy as np

WIDTH, HEIGHT, RATE = 640, 480, 5


def room():
    """What the camera sees when nobody is there."""
    row = np.linspace(150, 90, HEIGHT).astype(np.uint8)
    return np.repeat(np.repeat(row[:, None], WIDTH, axis=1)[:, :, None], 3, axis=2).copy()


def scene(*people):
    """The room with people, each (photo, height, centre)."""
    frame = room()
    for photo, height, centre in people:
        person = cv2.resize(photo, (round(photo.shape[1] * height / photo.shape[0]), height), interpolation=cv2.INTER_AREA)
        left = centre - person.shape[1] // 2
        frame[HEIGHT - height:, left:left + person.shape[1]] = person
    return frame


def write(path, scenes):
    """A video in the format that Chromium's fake camera plays over and over; each scene lasts for its seconds."""
    with open(path, "wb") as video:
        video.write(f"YUV4MPEG2 W{WIDTH} H{HEIGHT} F{RATE}:1 Ip A1:1 C420jpeg\n".encode())
        for frame, seconds in scenes:
            planes = cv2.cvtColor(frame, cv2.COLOR_BGR2YUV_I420).tobytes()
            for _ in range(round(seconds * RATE)):
                video.write(b"FRAME\n" + planes)


def main(photos, folder):
    first, first_mask, second, second_mask = (
        cv2.imread(str(photos / f"{name}.webp")) for name in ("first-bare", "first-mask", "second-bare", "second-mask"))
    whole, half = HEIGHT, 420  # two people of the smaller height stand side by side
    write(folder / "enrol.y4m", [
        (room(), 2),
        (scene((first, 240, 320)), 2),
        (scene((first, half, 160), (second, half, 480)), 2),
        (scene((first_mask, whole, 320)), 2),
        (scene((second, whole, 320)), 2),
        (scene((first, whole, 320)), 5),
    ])
    write(folder / "visitors.y4m", [
        (scene((first_mask, whole, 320)), 4),
        (scene((first_mask, half, 160), (second, half, 480)), 4),
        (room(), 6),
    ])
    cv2.imwrite(str(folder / "both.jpg"), scene((first_mask, half, 160), (second_mask, half, 480)))
    cv2.imwrite(str(folder / "tiny.png"), first[:40, :40])
    (folder / "text.jpg").write_text("This is not a picture.\n")


main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]))
