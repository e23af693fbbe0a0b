#ifndef VELDAN_THRESHOLDS_H
#define VELDAN_THRESHOLDS_H

/**
 * @file
 * What to compare the scores with, all in percent as the entry points take and give them. C99 and C++. They belong to
 * the embedded networks and are measured anew with every training; docs/thresholds.md says on what, and which other
 * values stand for which rates of errors.
 */

/** Similarity from which two bare faces count as one person: 1 in 1,000 pairs of different people reach it. */
#define VELDAN_SAME_PERSON 70
/** The same for two masked templates. */
#define VELDAN_SAME_PERSON_MASKED 77
/** Quality from which a photo serves for enrolment. */
#define VELDAN_ENROLMENT_QUALITY 40
/** Quality from which a face of a video is worth searching: a frame is one of many. */
#define VELDAN_TRACKED_QUALITY 30
/** maskScore from which a face counts as masked, as in the combined flows. */
#define VELDAN_MASKED 41
/** liveness from which a face counts as live. How far to trust it: docs/models.md. */
#define VELDAN_LIVE 50

#endif
