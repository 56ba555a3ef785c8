# Every third-party library the build links, found once. Libraries without a CMake
# package in Debian 12 come through pkg-config as imported targets.

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

pkg_check_modules(FFTW3F REQUIRED IMPORTED_TARGET fftw3f)
# fftwf_make_planner_thread_safe() lives in the threads library, which fftw3f.pc leaves out.
find_library(FFTW3F_THREADS_LIB fftw3f_threads REQUIRED)

pkg_check_modules(SNDFILE REQUIRED IMPORTED_TARGET sndfile)
# libFLAC (libsndfile's own FLAC decoder) decodes native FLAC straight into planar float.
pkg_check_modules(FLAC REQUIRED IMPORTED_TARGET flac)
pkg_check_modules(SOXR REQUIRED IMPORTED_TARGET soxr)
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET libavformat libavcodec libswresample libavutil)
pkg_check_modules(RUBBERBAND REQUIRED IMPORTED_TARGET rubberband)
pkg_check_modules(RTAUDIO REQUIRED IMPORTED_TARGET rtaudio)
pkg_check_modules(JACK REQUIRED IMPORTED_TARGET jack)
# Only to silence libasound's own error printer, which the device re-scan would otherwise run
# every 2 s on machines without a sound card.
pkg_check_modules(ALSA REQUIRED IMPORTED_TARGET alsa)
pkg_check_modules(LILV REQUIRED IMPORTED_TARGET lilv-0)

# Silero weights are read from their ONNX protobuf; libonnx's package needs Protobuf first.
find_package(Protobuf REQUIRED)
find_package(ONNX REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)

if(CORVANE_BUILD_APP)
  find_package(Qt6 6.4 REQUIRED COMPONENTS Core Gui Widgets Network Test DBus)
endif()

if(CORVANE_BUILD_TESTS)
  find_package(GTest REQUIRED)
  # libebur128 is an oracle: tests and benchmarks link it, the program never does.
  pkg_check_modules(EBUR128 REQUIRED IMPORTED_TARGET libebur128)
endif()
if(CORVANE_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
