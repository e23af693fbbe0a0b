#ifndef VELDAN_SERVICE_FACES_HPP
#define VELDAN_SERVICE_FACES_HPP

#include "photo/photo.hpp"
#include "routes.hpp"
#include "workers.hpp"

namespace veldan::service {

/** Has something done by a worker, within the time that a request may take. */
void inWorker(Call& call, const Workers::Work& work);

/** The picture of an upload, and its size in the entry. Throws Problem, also when it is too large to be decoded. */
kit::Photo decoded(const Call& call, const Upload& upload, Json& entry);

} // namespace veldan::service

#endif
