/* Preloaded into the program by scripts/faults and scripts/torture: what strace cannot do, and a fork server.
 *
 * Nothing in the program knows of it. The wrapped main() marks its beginning with a call that the program
 * never makes itself, so that a trace shows where the loader's calls end. With TOLVEN_FAULT_CHANNEL, the
 * number of a socket, it waits there for jobs instead and runs the real main() in a fork each, with one
 * fault, and answers how that ended.
 */
#define _GNU_SOURCE
#include <errno.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

enum { NO_FAULT, ALLOCATION, SHORT_COUNT, TORN_WRITE };

static struct { int kind, number, seconds; } job;
static struct counters {
  int status, early, allocations, transfers, fired;
} before_main, *counted = &before_main;
static char
    ours[4096]; /* the directory above the working directory: transfers of files elsewhere are not touched */

#ifdef COUNT_ALLOCATIONS
extern void* __libc_malloc(size_t);
extern void* __libc_calloc(size_t, size_t);
extern void* __libc_realloc(void*, size_t);
extern void* __libc_memalign(size_t, size_t);

static int fails(void) {
  int number = __atomic_add_fetch(&counted->allocations, 1, __ATOMIC_RELAXED);
  if (job.kind != ALLOCATION || number != job.number) return 0;
  counted->fired = 1;
  errno = ENOMEM;
  return 1;
}

void* malloc(size_t size) {
  return fails() ? NULL : __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
  return fails() ? NULL : __libc_calloc(count, size);
}
void* realloc(void* old, size_t size) {
  return fails() ? NULL : __libc_realloc(old, size);
}
void* memalign(size_t align, size_t size) {
  return fails() ? NULL : __libc_memalign(align, size);
}
void* aligned_alloc(size_t align, size_t size) {
  return memalign(align, size);
}
int posix_memalign(void** out, size_t align, size_t size) {
  void* made = memalign(align, size);
  if (made != NULL) *out = made;
  return made != NULL ? 0 : ENOMEM;
}
#endif

/* Short counts that are true: the C library's own calls cannot be wrapped by name, so the kernel traps them,
 * and they are made again, with half the count, from the one address that it lets through. */
long gate(long number, long a, long b, long c, long d);
extern char gate_end[];
__asm__(
    ".text\n.globl gate\n.hidden gate\n.hidden gate_end\n"
    "gate: mov %rdi,%rax\n mov %rsi,%rdi\n mov %rdx,%rsi\n mov %rcx,%rdx\n mov %r8,%r10\n syscall\n"
    "gate_end: ret\n");

static int is_ours(int descriptor) {
  char link[32] = "/proc/self/fd/", target[sizeof ours], digits[12];
  char* at = digits + sizeof digits - 1;
  for (*at = 0; descriptor > 0 || *at == 0; descriptor /= 10) *--at = (char)('0' + descriptor % 10);
  ssize_t length = readlink(strcat(link, at), target, sizeof target);
  return length > (ssize_t)strlen(ours) && memcmp(target, ours, strlen(ours)) == 0;
}

static void on_transfer(int signal, siginfo_t* info, void* context) {
  (void)signal, (void)info;
  greg_t* r = ((ucontext_t*)context)->uc_mcontext.gregs;
  const int error = errno;
  const int writes = r[REG_RAX] == SYS_write || r[REG_RAX] == SYS_pwrite64;
  long count = r[REG_RDX];
  const int due = count > 1 && (writes || job.kind == SHORT_COUNT) && is_ours((int)r[REG_RDI]) &&
                  ++counted->transfers == job.number;
  if (due) counted->fired = 1;
  r[REG_RAX] = gate(r[REG_RAX], r[REG_RDI], r[REG_RSI], due ? count / 2 : count, r[REG_R10]);
  if (due && job.kind == TORN_WRITE) kill(getpid(), SIGKILL);
  errno = error;
}

static void trap_transfers(void) {
  const uint64_t through = (uint64_t)(uintptr_t)gate_end;
  struct sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_read, 4, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_write, 3, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_pread64, 2, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_pwrite64, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, instruction_pointer)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, (uint32_t)through, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, instruction_pointer) + 4),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, (uint32_t)(through >> 32), 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP),
  };
  const struct sock_fprog program = {sizeof filter / sizeof *filter, filter};
  const struct sigaction action = {.sa_sigaction = on_transfer, .sa_flags = SA_SIGINFO | SA_NODEFER};
  if (sigaction(SIGSYS, &action, NULL) != 0 || prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
    _exit(125);
}

typedef int main_function(int, char**, char**);
static main_function* real_main;

static int run_main(int argc, char** argv, char** envp) {
  const char* channel = getenv("TOLVEN_FAULT_CHANNEL");
  if (channel == NULL) {
    syscall(SYS_getpgid, 0);
    return real_main(argc, argv, envp);
  }
  const int socket = atoi(channel), early = before_main.allocations;
  counted = mmap(NULL, sizeof *counted, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (counted == MAP_FAILED || getcwd(ours, sizeof ours) == NULL) _exit(125);
  *strrchr(ours, '/') = 0;
  while (read(socket, &job, sizeof job) == sizeof job) {
    memset(counted, 0, sizeof *counted);
    const pid_t child = fork();
    if (child == 0) {
      close(socket);
      alarm((unsigned)job.seconds);
      if (job.kind == SHORT_COUNT || job.kind == TORN_WRITE) trap_transfers();
      return real_main(argc, argv, envp);
    }
    int status;
    if (child < 0 || waitpid(child, &status, 0) != child) _exit(125);
    counted->status = status;
    counted->early = early;
    if (write(socket, counted, sizeof *counted) != sizeof *counted) break;
  }
  _exit(0);
}

int __libc_start_main(main_function* main, int argc, char** argv, void (*init)(void), void (*fini)(void),
                      void (*rtld_fini)(void), void* stack_end) {
  extern void* dlsym(void*, const char*);
  int (*start)(main_function*, int, char**, void (*)(void), void (*)(void), void (*)(void), void*);
  *(void**)&start = dlsym((void*)-1L /* RTLD_NEXT */, "__libc_start_main");
  real_main = main;
  before_main.allocations = 0; /* from here on it is the program that allocates */
  return start(run_main, argc, argv, init, fini, rtld_fini, stack_end);
}
