// The OpenCV camera file reader over arbitrary bytes, through the file as the program reads it.
// A file that reads is written and must read back to the same camera; its conversion to a
// camera file's camera must end in a result, whatever numbers it holds.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "FuzzFiles.h"
#include "photogrammetry/Camera.h"
#include "photogrammetry/OpenCvCamera.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kel_fuzz::Init();
    kel_fuzz::WriteInput(L"\\fuzz.yml", data, size);
    COpenCvCamera cv;
    if (cv.ReadYaml(L"\\fuzz.yml") != 1) return 0;
    const std::string text = cv.FormatYaml();
    COpenCvCamera again;
    if (again.ParseYaml(text.data(), text.size()) != 1 || again.FormatYaml() != text ||
        !std::equal(cv.m_matrix, cv.m_matrix + 9, again.m_matrix))
        std::abort();
    CCamera cam;
    cv.ToCamera(0.003, 0.003 * cv.m_matrix[0] / cv.m_matrix[4], cv.DefaultModel(), cam);
    return 0;
}
