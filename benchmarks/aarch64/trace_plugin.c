#define _DEFAULT_SOURCE // fwrite_unlocked
// A plug-in of qemu-user that records what a program executes between two marks.
//
//     qemu-aarch64 -plugin libtrace_plugin.so,to=PREFIX PROGRAM
//
// A region begins at the instruction `hint #96` and ends at `hint #97`, both of which do nothing on a CPU. Written are
//     PREFIX.counts  for every region the instructions in it, as 64-bit numbers, each as soon as its region has ended
//     PREFIX.trace   for every executed instruction its place, as a 32-bit index
//     PREFIX.places  for every place its address (64 bits) and its instruction (32 bits), packed
// Only the first thread is looked at.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// What is used of QEMU's plug-in interface, version 1; Debian ships no header of it.
typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
struct qemu_plugin_insn;
typedef void (*translated)(qemu_plugin_id_t, struct qemu_plugin_tb*);
typedef void (*executed)(unsigned cpu, void* data);
typedef void (*ended)(qemu_plugin_id_t, void* data);
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t, translated);
void qemu_plugin_register_vcpu_insn_exec_cb(struct qemu_plugin_insn*, executed, int flags, void* data);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t, ended, void* data);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb*);
struct qemu_plugin_insn* qemu_plugin_tb_get_insn(const struct qemu_plugin_tb*, size_t index);
const void* qemu_plugin_insn_data(const struct qemu_plugin_insn*);
uint64_t qemu_plugin_insn_vaddr(const struct qemu_plugin_insn*);

#define EXPORTED __attribute__((visibility("default")))
EXPORTED int qemu_plugin_version = 1;

enum { hint_96 = 0xd5032c1f, hint_97 = 0xd5032c3f };

static FILE *counts_file, *trace_file, *places_file;
static uint32_t places;
static uint64_t count;
static int recording;

static void begin(unsigned cpu, void* data) {
    (void)data;
    if (cpu == 0)
        count = 0, recording = 1;
}

static void end(unsigned cpu, void* data) {
    (void)data;
    if (cpu != 0)
        return;
    recording = 0;
    fwrite(&count, sizeof count, 1, counts_file);
    fflush(counts_file);
}

static void step(unsigned cpu, void* data) {
    if (cpu != 0 || !recording)
        return;
    count++;
    const uint32_t place = (uint32_t)(uintptr_t)data;
    fwrite_unlocked(&place, sizeof place, 1, trace_file);
}

// A block that is translated again gets places of its own: a place is an instruction at an address, not the only one there.
static void translate(qemu_plugin_id_t id, struct qemu_plugin_tb* block) {
    (void)id;
    const size_t n = qemu_plugin_tb_n_insns(block);
    for (size_t i = 0; i < n; i++) {
        struct qemu_plugin_insn* instruction = qemu_plugin_tb_get_insn(block, i);
        const uint64_t address = qemu_plugin_insn_vaddr(instruction);
        uint32_t code;
        memcpy(&code, qemu_plugin_insn_data(instruction), sizeof code);
        fwrite(&address, sizeof address, 1, places_file);
        fwrite(&code, sizeof code, 1, places_file);
        const executed call = code == hint_96 ? begin : code == hint_97 ? end : step;
        qemu_plugin_register_vcpu_insn_exec_cb(instruction, call, 0, (void*)(uintptr_t)places++);
    }
}

static void finish(qemu_plugin_id_t id, void* data) {
    (void)id, (void)data;
    fclose(counts_file), fclose(trace_file), fclose(places_file);
}

static FILE* create(const char* prefix, const char* suffix) {
    char name[4096];
    snprintf(name, sizeof name, "%s.%s", prefix, suffix);
    return fopen(name, "wb");
}

EXPORTED int qemu_plugin_install(qemu_plugin_id_t id, const void* info, int argc, char** argv) {
    (void)info;
    if (argc != 1 || strncmp(argv[0], "to=", 3) != 0) {
        fprintf(stderr, "trace_plugin: one argument, to=PREFIX\n");
        return 1;
    }
    counts_file = create(argv[0] + 3, "counts");
    trace_file = create(argv[0] + 3, "trace");
    places_file = create(argv[0] + 3, "places");
    if (!counts_file || !trace_file || !places_file) {
        perror("trace_plugin");
        return 1;
    }
    qemu_plugin_register_vcpu_tb_trans_cb(id, translate);
    qemu_plugin_register_atexit_cb(id, finish, NULL);
    return 0;
}
