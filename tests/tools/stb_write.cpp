// The stb image writer, used to make PNG and JPEG inputs for the tool.
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STBI_WRITE_NO_STDIO
#include "stb_image_write.h"
