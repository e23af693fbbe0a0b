"""Names the faces of a picture: who_is_it.py KNOWN_FOLDER PICTURE. Written for face_recognition, as its documentation has it."""

import os
import sys

import face_recognition
import numpy as np

known_encodings = []
known_names = []
for file in sorted(os.listdir(sys.argv[1])):
    image = face_recognition.load_image_file(os.path.join(sys.argv[1], file))
    encodings = face_recognition.face_encodings(image)
    if len(encodings) > 0:
        known_encodings.append(encodings[0])
        known_names.append(os.path.splitext(file)[0])

image = face_recognition.load_image_file(sys.argv[2])
face_locations = face_recognition.face_locations(image, number_of_times_to_upsample=1, model="hog")
face_encodings = face_recognition.face_encodings(image, face_locations)
face_landmarks = face_recognition.face_landmarks(image, face_locations, model="small")
print(f"I found {len(face_locations)} face(s) in this photograph.")

for (top, right, bottom, left), encoding, marks in zip(face_locations, face_encodings, face_landmarks):
    matches = face_recognition.compare_faces(known_encodings, encoding)
    distances = face_recognition.face_distance(known_encodings, encoding)
    best = np.argmin(distances)
    name = known_names[best] if matches[best] else "Unknown"
    crop = image[top:bottom, left:right]
    assert crop.shape == (bottom - top, right - left, 3) and top < marks["nose_tip"][0][1] < bottom
    print(f"{name} at {top}, {right}, {bottom}, {left}")
