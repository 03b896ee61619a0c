# `ncodec audio` and the audio demo step end to end, with sox making the
# input WAV files and reading back what ncodec wrote (an independent WAV
# reader and writer). Left out when sox is not installed.
find_program(NCB_SOX sox)
if(NOT NCB_SOX)
    message(STATUS "sox not found: the ncodec audio tests are left out")
    return()
endif()
set(NCB_AUDIO_CLI_DIR ${PROJECT_BINARY_DIR}/audio-cli-test)

# 3 s of 44.1 kHz stereo at tempo 1.25 and 48 kHz: 2.4 s = 115200 frames,
# still a 1 kHz tone (sox's stat reports the rough frequency).
add_test(NAME ncodec_audio.tempo_and_rate
    COMMAND sh -c "set -e; d=\"$1\"/tempo; rm -rf \"$d\"; mkdir -p \"$d\"
        \"$2\" -n -r 44100 -c 2 -b 16 \"$d/in.wav\" synth 3 sine 1000 vol 0.5
        \"$0\" audio \"$d/in.wav\" \"$d/out.wav\" --rate 48000 --tempo 1.25 --eq 1000:0.75 --volume 0.9
        test \"$(\"$2\" --i -r \"$d/out.wav\")\" = 48000
        test \"$(\"$2\" --i -c \"$d/out.wav\")\" = 2
        test \"$(\"$2\" --i -s \"$d/out.wav\")\" = 115200
        \"$2\" \"$d/out.wav\" -n remix 1 stat -freq 2>&1 | awk '/Rough/ { f = $3 } END { exit !(f > 950 && f < 1050) }'"
        $<TARGET_FILE:ncodec> ${NCB_AUDIO_CLI_DIR} ${NCB_SOX})

# 5.1 at 24 bits folded to stereo 16-bit; a channel mask for 0x60F kept in
# an extensible header that sox reads back as four channels.
add_test(NAME ncodec_audio.downmix
    COMMAND sh -c "set -e; d=\"$1\"/downmix; rm -rf \"$d\"; mkdir -p \"$d\"
        \"$2\" -n -r 48000 -c 6 -b 24 \"$d/in.wav\" synth 1 sine 300 sine 400 sine 500 sine 60 sine 700 sine 800 vol 0.3
        \"$0\" audio \"$d/in.wav\" \"$d/stereo.wav\" --downmix 0x3
        test \"$(\"$2\" --i -c \"$d/stereo.wav\")\" = 2
        test \"$(\"$2\" --i -b \"$d/stereo.wav\")\" = 16
        test \"$(\"$2\" --i -s \"$d/stereo.wav\")\" = 48000
        \"$0\" audio \"$d/in.wav\" \"$d/quad.wav\" --downmix 0x33
        test \"$(\"$2\" --i -c \"$d/quad.wav\")\" = 4"
        $<TARGET_FILE:ncodec> ${NCB_AUDIO_CLI_DIR} ${NCB_SOX})

# 8-bit mono: unsigned on disk, signed in the library; a straight copy must
# come back equal to sox's own conversion to 16 bits.
add_test(NAME ncodec_audio.eight_bit_copy
    COMMAND sh -c "set -e; d=\"$1\"/eight; rm -rf \"$d\"; mkdir -p \"$d\"
        \"$2\" -n -r 8000 -c 1 -b 8 \"$d/in.wav\" synth 0.5 sine 440
        \"$0\" audio \"$d/in.wav\" \"$d/out.wav\"
        \"$2\" \"$d/in.wav\" -b 16 -e signed -t raw \"$d/want.raw\"
        \"$2\" \"$d/out.wav\" -t raw \"$d/got.raw\"
        cmp \"$d/want.raw\" \"$d/got.raw\""
        $<TARGET_FILE:ncodec> ${NCB_AUDIO_CLI_DIR} ${NCB_SOX})

add_test(NAME ncodec_audio.refuses_wide_streams_for_tempo
    COMMAND sh -c "set -e; d=\"$1\"/wide; rm -rf \"$d\"; mkdir -p \"$d\"
        \"$2\" -n -r 48000 -c 6 -b 16 \"$d/in.wav\" synth 0.1 sine 300
        ! \"$0\" audio \"$d/in.wav\" \"$d/out.wav\" --tempo 2
        ! \"$0\" audio \"$d/in.wav\" \"$d/out.wav\" --eq 1000
        ! \"$0\" audio \"$d/missing.wav\" \"$d/out.wav\"
        test ! -e \"$d/out.wav\""
        $<TARGET_FILE:ncodec> ${NCB_AUDIO_CLI_DIR} ${NCB_SOX})

add_test(NAME ncodec_audio.demo_step
    COMMAND sh -c "set -e; d=\"$1\"/demo; rm -rf \"$d\"
        \"$0\" demo --out \"$d\" --step audio
        test \"$(\"$2\" --i -r \"$d/audio_sweep.wav\")\" = 48000
        test \"$(\"$2\" --i -s \"$d/audio_sweep_in.wav\")\" = 88200
        grep -q 'THD+N' \"$d/audio.txt\""
        $<TARGET_FILE:ncodec> ${NCB_AUDIO_CLI_DIR} ${NCB_SOX})
