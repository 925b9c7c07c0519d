// Photographs: decoding a 4000 x 3000 and an 8000 x 6000 JPEG at 1/1, 1/2, 1/4 and 1/8 into a
// bitmap through the codec module, against libjpeg-turbo's djpeg on the same files in the same
// run (djpeg writes its PPM to /dev/null). The JPEGs are made once per run with cjpeg in a
// temporary folder and removed at exit. Wall-clock times; compare BM_Module/<w>/<scale> with
// BM_Djpeg/<w>/<scale>. Also the photograph bitmap's own loads (full size, and the requested
// rate, which picks 1/8 for both sizes).
// Run: build/ci/bench/ImageBench --benchmark_min_time=2
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "imaging/FCIMGBitmap.h"
#include "imaging/JpegInterface.h"
#include "platform/DynLoad.h"
#include "platform/KelString.h"

namespace {

constexpr int kQuality = 90;

std::string& TempDir() {
    static std::string dir;
    if (dir.empty()) {
        char tmpl[] = "/tmp/kelscan-imagebench-XXXXXX";
        if (mkdtemp(tmpl) == nullptr) std::abort();
        dir = tmpl;
        std::atexit([]() {
            std::error_code ec;
            std::filesystem::remove_all(TempDir(), ec);
        });
    }
    return dir;
}

// A photograph-like picture (smooth shading with fine texture, so that the entropy decoder has
// real work) written as a PPM and compressed with cjpeg; the path of the JPEG.
std::string Photo(int width, int height) {
    const std::string base = TempDir() + "/photo" + std::to_string(width);
    const std::string jpg = base + ".jpg";
    if (std::filesystem::exists(jpg)) return jpg;
    {
        std::ofstream ppm(base + ".ppm", std::ios::binary);
        ppm << "P6\n" << width << ' ' << height << "\n255\n";
        std::vector<char> row(3 * static_cast<std::size_t>(width));
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const unsigned noise = (static_cast<unsigned>(x) * 2654435761u) ^
                                       (static_cast<unsigned>(y) * 40503u);
                row[3 * x] = static_cast<char>((x * 255 / width + (noise >> 28)) & 0xFF);
                row[3 * x + 1] = static_cast<char>((y * 255 / height + ((noise >> 20) & 15)) & 0xFF);
                row[3 * x + 2] = static_cast<char>(((x + y) / 16 + ((noise >> 12) & 7)) & 0xFF);
            }
            ppm.write(row.data(), static_cast<std::streamsize>(row.size()));
        }
    }
    const std::string cmd = "cjpeg -quality " + std::to_string(kQuality) + " -outfile " + jpg +
                            " " + base + ".ppm";
    if (std::system(cmd.c_str()) != 0) std::abort();
    std::filesystem::remove(base + ".ppm");
    return jpg;
}

int Height(int width) { return width * 3 / 4; }

void BM_Module(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0));
    const int scale = static_cast<int>(state.range(1));
    const std::string path = Photo(width, Height(width));
    const kel_text::CKelString wide = kel_text::Utf8ToWide(path.c_str());
    HMODULE module = nullptr;
    auto create = reinterpret_cast<PFN_CREATE_JPEG_INTERFACE>(
        GetLibraryFunction(L"JPEG_LIB.dll", "Create_JpegInterface_ExplicitLoading", &module));
    auto destroy = reinterpret_cast<PFN_DESTROY_JPEG_INTERFACE>(
        GetLibraryFunction(L"JPEG_LIB.dll", "Destroy_JpegInterface_ExplicitLoading", &module));
    if (create == nullptr || destroy == nullptr) {
        state.SkipWithError("the codec module was not found");
        return;
    }
    for (auto _ : state) {
        CJpegInterface* jpeg = create();
        if (!jpeg->Open(wide.GetString()) || !jpeg->Decode(scale, 0)) {
            state.SkipWithError("decode failed");
            destroy(jpeg);
            break;
        }
        HBITMAP b = jpeg->DetachBitmap();
        benchmark::DoNotOptimize(b->bits);
        DeleteObject(b);
        destroy(jpeg);
    }
    FreeLibraryFunction(module);
}

void BM_Djpeg(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0));
    const int scale = static_cast<int>(state.range(1));
    const std::string cmd = "djpeg -scale 1/" + std::to_string(scale) + " -outfile /dev/null " +
                            Photo(width, Height(width));
    for (auto _ : state)
        if (std::system(cmd.c_str()) != 0) {
            state.SkipWithError("djpeg failed");
            break;
        }
}

// The bitmap class as an image view uses it: noSetResRate 1 (full size) or the requested rate.
void BM_PhotoBitmap(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0));
    const bool full = state.range(1) != 0;
    const kel_text::CKelString wide = kel_text::Utf8ToWide(Photo(width, Height(width)).c_str());
    for (auto _ : state) {
        CFCIMGBitmap img;
        if (!full) img.SetRate_Res(1, 1);
        if (img.LoadImgFile(wide.GetString(), full ? 1 : 0) != SC_IMG_OK) {
            state.SkipWithError("load failed");
            break;
        }
        benchmark::DoNotOptimize(img.GethBitmap());
    }
}

void Scales(benchmark::internal::Benchmark* b) {
    for (const int w : {4000, 8000})
        for (const int s : {1, 2, 4, 8}) b->Args({w, s});
}

}  // namespace

BENCHMARK(BM_Module)->Apply(Scales)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Djpeg)->Apply(Scales)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PhotoBitmap)
    ->ArgsProduct({{4000, 8000}, {1, 0}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
