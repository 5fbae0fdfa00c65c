#pragma once

// What the server calls itself, everywhere it does.
#define QUILLWAVE_VERSION "1.0.2"
#define QUILLWAVE_CODE_NAME " evergreen"
#define QUILLWAVE_PLATFORM "Linux 64-bit"
