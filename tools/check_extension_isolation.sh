#!/usr/bin/env bash
# Checks that a built libkestrion_ksi_polarization_processor_vector_avx2.so
# keeps its wide instructions where the lane width chosen at initialise
# allows them:
#
#   check_extension_isolation.sh <path to the extension>
#
# The extension is loaded on processors without AVX too (its initialise then
# refuses), and runs eight lanes on processors without AVX-512. So:
#   - AVX-512 (every EVEX-encoded instruction, and the opmask instructions
#     k...) may appear only in functions whose demangled name contains
#     "Avx512_form": the sixteen-lane form, reached only after initialise
#     chose it;
#   - VEX-encoded instructions (AVX, AVX2) only there or in functions whose
#     name contains "Avx2_form": the eight-lane form;
#   - every other function (initialise, the transform entry, the dispatchers,
#     the scalar stages, the whole-image sweeps) holds neither.
# The encoding is read from the instruction bytes, not from the mnemonic: the
# first byte after any legacy and REX prefixes is 0xC4/0xC5 for VEX and 0x62
# for EVEX. The check fails as well when either form holds no instruction of
# its kind: then it is not looking at the kernels and proves nothing.
set -euo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/disassembly_listing.sh"
disassemble_argument "$0" "$@" -- -d -C -M intel --insn-width=16

awk -v library="$library" '
BEGIN {
    split("26 2e 36 3e 64 65 66 67 f0 f2 f3", list, " ")
    for (i in list)
        legacy[list[i]] = 1
    function_name = "(no function)"
    functions = 0; wide_functions = 0; vex_in_avx2 = 0; evex_in_avx512 = 0; instructions = 0; offences = 0
}
# A function header: "0000000000012340 <name>:"
/^[0-9a-f]+ <.*>:$/ {
    start = index($0, " <")
    function_name = substr($0, start + 2, length($0) - start - 3)
    in_avx512 = index(function_name, "Avx512_form") > 0
    in_avx2 = !in_avx512 && index(function_name, "Avx2_form") > 0
    ++functions
    if (in_avx512 || in_avx2)
        ++wide_functions
    next
}
# An instruction: "   12345:<tab>bytes<tab>mnemonic operands"
/^ *[0-9a-f]+:\t/ {
    n = split($0, fields, "\t")
    if (n < 3)
        next
    address = fields[1]
    gsub(/[ :]/, "", address)
    text = fields[3]
    nbytes = split(fields[2], bytes, " ")
    b = 1
    while (b <= nbytes && (bytes[b] in legacy))
        ++b
    if (b <= nbytes && bytes[b] ~ /^4[0-9a-f]$/)
        ++b
    opcode = b <= nbytes ? bytes[b] : ""
    split(text, words, /[ \t]+/)
    mnemonic = words[1]
    if (mnemonic == "(bad)" || mnemonic == "")
        next
    ++instructions

    kind = ""
    if (opcode == "62")
        kind = "EVEX (AVX-512)"
    else if (mnemonic ~ /^k(mov|and|andn|or|xor|xnor|not|ortest|test|shiftl|shiftr|unpck|add)[bwdq]*$/)
        kind = "AVX-512 opmask"
    else if (opcode == "c4" || opcode == "c5")
        kind = "VEX (AVX)"
    if (kind == "")
        next

    if (in_avx512) {
        if (kind != "VEX (AVX)")
            ++evex_in_avx512
        next
    }
    if (in_avx2 && kind == "VEX (AVX)") {
        ++vex_in_avx2
        next
    }
    ++offences
    if (offences <= 200)
        printf("OFFENCE %s instruction \"%s\" at 0x%s in %s\n", kind, text, address, function_name)
    next
}
END {
    printf("%s: %d functions, %d instructions; %d functions of the wide forms; %d VEX instructions in the eight-lane form, %d AVX-512 instructions in the sixteen-lane form\n",
           library, functions, instructions, wide_functions, vex_in_avx2, evex_in_avx512)
    status = 0
    if (instructions == 0) {
        print "FAIL: no instructions were disassembled"
        status = 1
    }
    if (vex_in_avx2 == 0) {
        print "FAIL: no VEX instruction in a function of Avx2_form: the check is not seeing the eight-lane kernels"
        status = 1
    }
    if (evex_in_avx512 == 0) {
        print "FAIL: no AVX-512 instruction in a function of Avx512_form: the check is not seeing the sixteen-lane kernels"
        status = 1
    }
    if (offences > 0) {
        printf("FAIL: %d instructions outside their allowed functions\n", offences)
        status = 1
    }
    if (status == 0)
        print "OK: AVX-512 lies only in the sixteen-lane form, AVX and AVX2 only in the wide forms"
    exit status
}
' "$listing"
