/// What the host prints on standard output.
#pragma once

#include "host/host_camera.h"

namespace host {

void PrintPlan(const std::string& library, const Fault* fault, const Plan& plan);
void PrintLibraries(const standin::Control& device, PlatFormIntCallbacks table);
void PrintCamera(const standin::Control& device, const PlatFormIntCallbacks& table,
                 const Plan& plan);
void PrintRequestHeading(size_t number, const Step& step);
void PrintRequest(const Request& request);
void PrintSessions(const standin::Control& device, const Camera& camera);

/// The last part. \returns whether everything came back as it should.
bool PrintVerdict(const standin::Control& device, const Camera& camera);

} // namespace host
