#!/usr/bin/env bash
# Checks that a built libkestrion_ksi_polarization_processor.so keeps every
# instruction beyond SSE2 inside the SSE4.1 form of the four-lane block.
#
#   check_sse41_isolation.sh <path to the shared object>
#
# The shared object must run on any x86-64 processor: only functions whose
# demangled name contains "Sse41_form" are entered on processors with SSE4.1
# alone. The script disassembles the whole file and tracks the function each
# instruction belongs to, from the symbol table. It fails when
#   - a function without "Sse41_form" in its name holds an instruction of
#     SSE3, SSSE3, SSE4.1 (including the memory form of pextrw), SSE4.2, a
#     VEX or EVEX encoded (AVX, AVX2, FMA, AVX-512) instruction, or another
#     extension beyond the x86-64 baseline (popcnt, lzcnt, BMI, ...);
#   - a "Sse41_form" function holds an instruction beyond SSE4.1 (SSE4.2,
#     VEX/EVEX, popcnt, BMI, ...);
#   - no "Sse41_form" function, or no SSE4.1 instruction at all, is found:
#     then the check is not looking at the kernels and proves nothing.
# Every offending instruction is printed with its function and address.
set -euo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/disassembly_listing.sh"
disassemble_argument "$0" "$@" -- -d --no-show-raw-insn -C -M intel

awk -v library="$library" '
function add(set, words,    n, i, list) {
    n = split(words, list, " ")
    for (i = 1; i <= n; ++i)
        set[list[i]] = 1
}
BEGIN {
    add(sse41, "pmovzxbw pmovzxbd pmovzxbq pmovzxwd pmovzxwq pmovzxdq")
    add(sse41, "pmovsxbw pmovsxbd pmovsxbq pmovsxwd pmovsxwq pmovsxdq")
    add(sse41, "packusdw pblendw blendps blendpd blendvps blendvpd pblendvb")
    add(sse41, "roundps roundss roundpd roundsd ptest")
    add(sse41, "pminud pmaxud pminsd pmaxsd pminuw pmaxuw pminsb pmaxsb")
    add(sse41, "pmulld pmuldq pcmpeqq insertps extractps")
    add(sse41, "pinsrd pinsrb pinsrq pextrd pextrb pextrq")
    add(sse41, "phminposuw dpps dppd mpsadbw movntdqa")

    add(below_sse41, "addsubps addsubpd haddps haddpd hsubps hsubpd lddqu movddup movshdup movsldup fisttp")
    add(below_sse41, "monitor mwait")
    add(below_sse41, "pshufb phaddw phaddd phaddsw phsubw phsubd phsubsw pmaddubsw pmulhrsw")
    add(below_sse41, "psignb psignw psignd pabsb pabsw pabsd palignr")

    add(beyond_sse41, "pcmpgtq pcmpestri pcmpestrm pcmpistri pcmpistrm crc32")
    add(beyond_sse41, "popcnt lzcnt tzcnt andn bextr blsi blsmsk blsr bzhi mulx pdep pext rorx sarx shlx shrx")
    add(beyond_sse41, "aesenc aesenclast aesdec aesdeclast aesimc aeskeygenassist pclmulqdq")
    add(beyond_sse41, "sha1rnds4 sha1nexte sha1msg1 sha1msg2 sha256rnds2 sha256msg1 sha256msg2")
    add(beyond_sse41, "movbe adcx adox rdrand rdseed extrq insertq movntss movntsd")

    # Mnemonics beginning with v that are not VEX encoded.
    add(not_vex, "verr verw vmcall vmlaunch vmresume vmxoff vmxon vmread vmwrite vmptrld vmptrst vmclear")
    add(not_vex, "vmfunc vmrun vmload vmsave vmmcall")

    add(prefixes, "rep repz repnz repe repne lock data16 data32 addr16 addr32 cs ds es ss fs gs")
    add(prefixes, "notrack bnd xacquire xrelease rex rex.w rex.r rex.x rex.b")

    function_name = "(no function)"
    functions = 0; sse41_functions = 0; instructions = 0; sse41_found = 0; offences = 0
}
# A function header: "0000000000012340 <name>:"
/^[0-9a-f]+ <.*>:$/ {
    start = index($0, " <")
    function_name = substr($0, start + 2, length($0) - start - 3)
    in_sse41_form = index(function_name, "Sse41_form") > 0
    ++functions
    if (in_sse41_form)
        ++sse41_functions
    next
}
# An instruction: "   12345:<tab>mnemonic operands"
/^ *[0-9a-f]+:\t/ {
    colon = index($0, ":")
    address = substr($0, 1, colon - 1)
    gsub(/^ +/, "", address)
    text = substr($0, colon + 2)
    n = split(text, words, /[ \t]+/)
    w = 1
    while (w <= n && (tolower(words[w]) in prefixes))
        ++w
    if (w > n)
        next
    mnemonic = tolower(words[w])
    if (mnemonic == "(bad)" || mnemonic == "...")
        next
    ++instructions

    kind = ""
    if (mnemonic in sse41)
        kind = "SSE4.1"
    else if (mnemonic == "pextrw" && text ~ /pextrw[ \t]+[^,]*(PTR|\[)/)
        kind = "SSE4.1 (pextrw to memory)"
    else if (mnemonic in below_sse41)
        kind = "SSE3/SSSE3"
    else if (mnemonic in beyond_sse41)
        kind = "beyond SSE4.1"
    else if (substr(mnemonic, 1, 1) == "v" && !(mnemonic in not_vex))
        kind = "VEX/EVEX (AVX)"
    else if (mnemonic ~ /^k(mov|and|andn|or|xor|xnor|not|ortest|test|shiftl|shiftr|unpck|add)[bwdq]*$/)
        kind = "AVX-512 mask"
    if (kind == "")
        next

    if (in_sse41_form) {
        if (kind ~ /^SSE4\.1/) {
            ++sse41_found
            next
        }
        if (kind == "SSE3/SSSE3")
            next
    }
    ++offences
    if (offences <= 200)
        printf("OFFENCE %s instruction \"%s\" at 0x%s in %s\n", kind, text, address, function_name)
    next
}
END {
    printf("%s: %d functions, %d instructions, %d functions of the SSE4.1 form holding %d SSE4.1 instructions\n",
           library, functions, instructions, sse41_functions, sse41_found)
    status = 0
    if (instructions == 0) {
        print "FAIL: no instructions were disassembled"
        status = 1
    }
    if (sse41_functions == 0) {
        print "FAIL: no function named with Sse41_form: the symbol table is missing or the SSE4.1 form is not built"
        status = 1
    }
    if (sse41_found == 0) {
        print "FAIL: no SSE4.1 instruction at all: the check is not seeing the SSE4.1 kernels"
        status = 1
    }
    if (offences > 0) {
        printf("FAIL: %d instructions outside their allowed functions\n", offences)
        status = 1
    }
    if (status == 0)
        print "OK: every instruction beyond SSE2 lies in the SSE4.1 form"
    exit status
}
' "$listing"
