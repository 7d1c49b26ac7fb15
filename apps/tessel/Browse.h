// `tessel browse`: a folder tree as the providers see it.
#pragma once

#include <string>

namespace Tessel::Tool {

// The bundled samples: $TESSEL_SAMPLES when set, else the source tree's samples/ folder.
std::string DefaultSamplesFolder();

}  // namespace Tessel::Tool
