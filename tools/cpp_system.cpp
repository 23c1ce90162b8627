#include "tools/cpp_system.h"

#include <string_view>
#include <unordered_set>

namespace tav {
namespace tool {

namespace {

/// The macros of the headers that generated ones include, and of compilers, but those whose names begin
/// alike.
constexpr char macros[] =
    "ADJ_ESTERROR ADJ_FREQUENCY ADJ_MAXERROR ADJ_MICRO ADJ_NANO ADJ_OFFSET ADJ_OFFSET_SINGLESHOT "
    "ADJ_OFFSET_SS_READ ADJ_SETOFFSET ADJ_STATUS ADJ_TAI ADJ_TICK ADJ_TIMECONST AIO_PRIO_DELTA_MAX "
    "ATOMIC_BOOL_LOCK_FREE ATOMIC_CHAR16_T_LOCK_FREE ATOMIC_CHAR32_T_LOCK_FREE ATOMIC_CHAR8_T_LOCK_FREE "
    "ATOMIC_CHAR_LOCK_FREE ATOMIC_FLAG_INIT ATOMIC_INT_LOCK_FREE ATOMIC_LLONG_LOCK_FREE "
    "ATOMIC_LONG_LOCK_FREE ATOMIC_POINTER_LOCK_FREE ATOMIC_SHORT_LOCK_FREE ATOMIC_VAR_INIT "
    "ATOMIC_WCHAR_T_LOCK_FREE BC_BASE_MAX BC_DIM_MAX BC_SCALE_MAX BC_STRING_MAX BIG_ENDIAN BOOL_MAX "
    "BOOL_WIDTH BUFSIZ BYTE_ORDER CHARCLASS_NAME_MAX CHAR_BIT CHAR_MAX CHAR_MIN CHAR_WIDTH "
    "CLOCKS_PER_SEC CLOCK_BOOTTIME CLOCK_BOOTTIME_ALARM CLOCK_MONOTONIC CLOCK_MONOTONIC_COARSE "
    "CLOCK_MONOTONIC_RAW CLOCK_PROCESS_CPUTIME_ID CLOCK_REALTIME CLOCK_REALTIME_ALARM "
    "CLOCK_REALTIME_COARSE CLOCK_TAI CLOCK_THREAD_CPUTIME_ID CLONE_CHILD_CLEARTID CLONE_CHILD_SETTID "
    "CLONE_DETACHED CLONE_FILES CLONE_FS CLONE_IO CLONE_NEWCGROUP CLONE_NEWIPC CLONE_NEWNET CLONE_NEWNS "
    "CLONE_NEWPID CLONE_NEWTIME CLONE_NEWUSER CLONE_NEWUTS CLONE_PARENT CLONE_PARENT_SETTID CLONE_PIDFD "
    "CLONE_PTRACE CLONE_SETTLS CLONE_SIGHAND CLONE_SYSVSEM CLONE_THREAD CLONE_UNTRACED CLONE_VFORK "
    "CLONE_VM CLOSE_RANGE_CLOEXEC CLOSE_RANGE_UNSHARE COLL_WEIGHTS_MAX CPU_ALLOC CPU_ALLOC_SIZE CPU_AND "
    "CPU_AND_S CPU_CLR CPU_CLR_S CPU_COUNT CPU_COUNT_S CPU_EQUAL CPU_EQUAL_S CPU_FREE CPU_ISSET "
    "CPU_ISSET_S CPU_OR CPU_OR_S CPU_SET CPU_SETSIZE CPU_SET_S CPU_XOR CPU_XOR_S CPU_ZERO CPU_ZERO_S "
    "CSIGNAL DELAYTIMER_MAX DOMAIN E2BIG EACCES EADDRINUSE EADDRNOTAVAIL EADV EAFNOSUPPORT EAGAIN "
    "EALREADY EBADE EBADF EBADFD EBADMSG EBADR EBADRQC EBADSLT EBFONT EBUSY ECANCELED ECHILD ECHRNG "
    "ECOMM ECONNABORTED ECONNREFUSED ECONNRESET EDEADLK EDEADLOCK EDESTADDRREQ EDOM EDOTDOT EDQUOT "
    "EEXIST EFAULT EFBIG EHOSTDOWN EHOSTUNREACH EHWPOISON EIDRM EILSEQ EINPROGRESS EINTR EINVAL EIO "
    "EISCONN EISDIR EISNAM EKEYEXPIRED EKEYREJECTED EKEYREVOKED EL2HLT EL2NSYNC EL3HLT EL3RST ELIBACC "
    "ELIBBAD ELIBEXEC ELIBMAX ELIBSCN ELNRNG ELOOP EMEDIUMTYPE EMFILE EMLINK EMSGSIZE EMULTIHOP "
    "ENAMETOOLONG ENAVAIL ENETDOWN ENETRESET ENETUNREACH ENFILE ENOANO ENOBUFS ENOCSI ENODATA ENODEV "
    "ENOENT ENOEXEC ENOKEY ENOLCK ENOLINK ENOMEDIUM ENOMEM ENOMSG ENONET ENOPKG ENOPROTOOPT ENOSPC "
    "ENOSR ENOSTR ENOSYS ENOTBLK ENOTCONN ENOTDIR ENOTEMPTY ENOTNAM ENOTRECOVERABLE ENOTSOCK ENOTSUP "
    "ENOTTY ENOTUNIQ ENXIO EOF EOPNOTSUPP EOVERFLOW EOWNERDEAD EPERM EPFNOSUPPORT EPIPE EPROTO "
    "EPROTONOSUPPORT EPROTOTYPE ERANGE EREMCHG EREMOTE EREMOTEIO ERESTART ERFKILL EROFS ESHUTDOWN "
    "ESOCKTNOSUPPORT ESPIPE ESRCH ESRMNT ESTALE ESTRPIPE ETIME ETIMEDOUT ETOOMANYREFS ETXTBSY EUCLEAN "
    "EUNATCH EUSERS EWOULDBLOCK EXDEV EXFULL EXIT_FAILURE EXIT_SUCCESS EXPR_NEST_MAX FD_CLR FD_ISSET "
    "FD_SET FD_SETSIZE FD_ZERO FILENAME_MAX FOPEN_MAX F_LOCK F_OK F_TEST F_TLOCK F_ULOCK HOST_NAME_MAX "
    "HUGE_VAL INFINITY INT16_C INT16_MAX INT16_MIN INT16_WIDTH INT32_C INT32_MAX INT32_MIN INT32_WIDTH "
    "INT64_C INT64_MAX INT64_MIN INT64_WIDTH INT8_C INT8_MAX INT8_MIN INT8_WIDTH INTMAX_C INTMAX_MAX "
    "INTMAX_MIN INTMAX_WIDTH INTPTR_MAX INTPTR_MIN INTPTR_WIDTH INT_FAST16_MAX INT_FAST16_MIN "
    "INT_FAST16_WIDTH INT_FAST32_MAX INT_FAST32_MIN INT_FAST32_WIDTH INT_FAST64_MAX INT_FAST64_MIN "
    "INT_FAST64_WIDTH INT_FAST8_MAX INT_FAST8_MIN INT_FAST8_WIDTH INT_LEAST16_MAX INT_LEAST16_MIN "
    "INT_LEAST16_WIDTH INT_LEAST32_MAX INT_LEAST32_MIN INT_LEAST32_WIDTH INT_LEAST64_MAX "
    "INT_LEAST64_MIN INT_LEAST64_WIDTH INT_LEAST8_MAX INT_LEAST8_MIN INT_LEAST8_WIDTH INT_MAX INT_MIN "
    "INT_WIDTH IOV_MAX LC_ADDRESS LC_ADDRESS_MASK LC_ALL LC_ALL_MASK LC_COLLATE LC_COLLATE_MASK "
    "LC_CTYPE LC_CTYPE_MASK LC_GLOBAL_LOCALE LC_IDENTIFICATION LC_IDENTIFICATION_MASK LC_MEASUREMENT "
    "LC_MEASUREMENT_MASK LC_MESSAGES LC_MESSAGES_MASK LC_MONETARY LC_MONETARY_MASK LC_NAME LC_NAME_MASK "
    "LC_NUMERIC LC_NUMERIC_MASK LC_PAPER LC_PAPER_MASK LC_TELEPHONE LC_TELEPHONE_MASK LC_TIME "
    "LC_TIME_MASK LINE_MAX LITTLE_ENDIAN LLONG_MAX LLONG_MIN LLONG_WIDTH LOGIN_NAME_MAX LONG_BIT "
    "LONG_LONG_MAX LONG_LONG_MIN LONG_MAX LONG_MIN LONG_WIDTH L_INCR L_SET L_XTND L_ctermid L_cuserid "
    "L_tmpnam MAX_CANON MAX_INPUT MB_CUR_MAX MB_LEN_MAX MOD_CLKA MOD_CLKB MOD_ESTERROR MOD_FREQUENCY "
    "MOD_MAXERROR MOD_MICRO MOD_NANO MOD_OFFSET MOD_STATUS MOD_TAI MOD_TIMECONST MQ_PRIO_MAX NAME_MAX "
    "NAN NFDBITS NGROUPS_MAX NL_ARGMAX NL_LANGMAX NL_MSGMAX NL_NMAX NL_SETMAX NL_TEXTMAX NULL NZERO "
    "OVERFLOW PATH_MAX PDP_ENDIAN PIPE_BUF PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP "
    "PTHREAD_ATTR_NO_SIGMASK_NP PTHREAD_BARRIER_SERIAL_THREAD PTHREAD_CANCELED "
    "PTHREAD_CANCEL_ASYNCHRONOUS PTHREAD_CANCEL_DEFERRED PTHREAD_CANCEL_DISABLE PTHREAD_CANCEL_ENABLE "
    "PTHREAD_COND_INITIALIZER PTHREAD_CREATE_DETACHED PTHREAD_CREATE_JOINABLE "
    "PTHREAD_DESTRUCTOR_ITERATIONS PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP PTHREAD_EXPLICIT_SCHED "
    "PTHREAD_INHERIT_SCHED PTHREAD_KEYS_MAX PTHREAD_MUTEX_INITIALIZER PTHREAD_ONCE_INIT "
    "PTHREAD_PROCESS_PRIVATE PTHREAD_PROCESS_SHARED PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP "
    "PTHREAD_RWLOCK_INITIALIZER PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP PTHREAD_SCOPE_PROCESS "
    "PTHREAD_SCOPE_SYSTEM PTHREAD_STACK_MIN PTRDIFF_MAX PTRDIFF_MIN PTRDIFF_WIDTH P_tmpdir RAND_MAX "
    "RENAME_EXCHANGE RENAME_NOREPLACE RENAME_WHITEOUT RE_DUP_MAX RTSIG_MAX R_OK SCHAR_MAX SCHAR_MIN "
    "SCHAR_WIDTH SCHED_BATCH SCHED_DEADLINE SCHED_FIFO SCHED_IDLE SCHED_ISO SCHED_OTHER "
    "SCHED_RESET_ON_FORK SCHED_RR SEEK_CUR SEEK_DATA SEEK_END SEEK_HOLE SEEK_SET SEM_VALUE_MAX SHRT_MAX "
    "SHRT_MIN SHRT_WIDTH SIZE_MAX SIZE_WIDTH SSIZE_MAX STA_CLK STA_CLOCKERR STA_DEL STA_FLL "
    "STA_FREQHOLD STA_INS STA_MODE STA_NANO STA_PLL STA_PPSERROR STA_PPSFREQ STA_PPSJITTER "
    "STA_PPSSIGNAL STA_PPSTIME STA_PPSWANDER STA_RONLY STA_UNSYNC STDERR_FILENO STDIN_FILENO "
    "STDOUT_FILENO TEMP_FAILURE_RETRY TIMER_ABSTIME TIME_UTC TMP_MAX TTY_NAME_MAX UCHAR_MAX UCHAR_WIDTH "
    "UINT16_C UINT16_MAX UINT16_WIDTH UINT32_C UINT32_MAX UINT32_WIDTH UINT64_C UINT64_MAX UINT64_WIDTH "
    "UINT8_C UINT8_MAX UINT8_WIDTH UINTMAX_C UINTMAX_MAX UINTMAX_WIDTH UINTPTR_MAX UINTPTR_WIDTH "
    "UINT_FAST16_MAX UINT_FAST16_WIDTH UINT_FAST32_MAX UINT_FAST32_WIDTH UINT_FAST64_MAX "
    "UINT_FAST64_WIDTH UINT_FAST8_MAX UINT_FAST8_WIDTH UINT_LEAST16_MAX UINT_LEAST16_WIDTH "
    "UINT_LEAST32_MAX UINT_LEAST32_WIDTH UINT_LEAST64_MAX UINT_LEAST64_WIDTH UINT_LEAST8_MAX "
    "UINT_LEAST8_WIDTH UINT_MAX UINT_WIDTH ULLONG_MAX ULLONG_WIDTH ULONG_LONG_MAX ULONG_MAX ULONG_WIDTH "
    "UNDERFLOW USHRT_MAX USHRT_WIDTH WCHAR_MAX WCHAR_MIN WCHAR_WIDTH WCONTINUED WEOF WEXITED "
    "WEXITSTATUS WIFCONTINUED WIFEXITED WIFSIGNALED WIFSTOPPED WINT_MAX WINT_MIN WINT_WIDTH WNOHANG "
    "WNOWAIT WORD_BIT WSTOPPED WSTOPSIG WTERMSIG WUNTRACED W_OK XATTR_LIST_MAX XATTR_NAME_MAX "
    "XATTR_SIZE_MAX X_OK alloca assert be16toh be32toh be64toh errno htobe16 htobe32 htobe64 htole16 "
    "htole32 htole64 i386 le16toh le32toh le64toh linux major makedev minor offsetof "
    "pthread_cleanup_pop pthread_cleanup_pop_restore_np pthread_cleanup_push "
    "pthread_cleanup_push_defer_np sched_priority setjmp stderr stdin stdout strdupa strndupa unix "
    "va_arg va_copy va_end va_start ";

/// What these headers have at the global level, but for types that end in _t.
constexpr char globals[] =
    "FILE a64l abort abs aligned_alloc arc4random arc4random_buf arc4random_uniform asctime asctime_r "
    "asprintf atexit atof atoi atol atoll bsearch btowc calloc canonicalize_file_name clearenv clearerr "
    "clearerr_unlocked clock clock_adjtime clock_getcpuclockid clock_getres clock_gettime "
    "clock_nanosleep clock_settime clone ctermid ctime ctime_r cuserid daylight delete difftime div "
    "dprintf drand48 drand48_data drand48_r duplocale dysize ecvt ecvt_r erand48 erand48_r exit "
    "explicit_bzero fclose fcloseall fcvt fcvt_r fdopen feof feof_unlocked ferror ferror_unlocked "
    "fflush fflush_unlocked fgetc fgetc_unlocked fgetpos fgetpos64 fgets fgets_unlocked fgetwc "
    "fgetwc_unlocked fgetws fgetws_unlocked fileno fileno_unlocked flockfile fmemopen fopen fopen64 "
    "fopencookie fprintf fputc fputc_unlocked fputs fputs_unlocked fputwc fputwc_unlocked fputws "
    "fputws_unlocked fread fread_unlocked free freelocale freopen freopen64 fscanf fseek fseeko "
    "fseeko64 fsetpos fsetpos64 ftell ftello ftello64 ftrylockfile funlockfile fwide fwprintf fwrite "
    "fwrite_unlocked fwscanf gcvt getc getc_unlocked getchar getchar_unlocked getcpu getdate "
    "getdate_err getdate_r getdelim getenv getline getloadavg getpt getsubopt getw getwc getwc_unlocked "
    "getwchar getwchar_unlocked gmtime gmtime_r grantpt initstate initstate_r isalnum isalnum_l isalpha "
    "isalpha_l isascii isblank isblank_l iscntrl iscntrl_l isctype isdigit isdigit_l isgraph isgraph_l "
    "islower islower_l isprint isprint_l ispunct ispunct_l isspace isspace_l isupper isupper_l iswalnum "
    "iswalnum_l iswalpha iswalpha_l iswblank iswblank_l iswcntrl iswcntrl_l iswctype iswctype_l "
    "iswdigit iswdigit_l iswgraph iswgraph_l iswlower iswlower_l iswprint iswprint_l iswpunct "
    "iswpunct_l iswspace iswspace_l iswupper iswupper_l iswxdigit iswxdigit_l isxdigit isxdigit_l "
    "itimerspec jrand48 jrand48_r l64a labs lcong48 lcong48_r lconv ldiv llabs lldiv localeconv "
    "localtime localtime_r lrand48 lrand48_r malloc mblen mbrlen mbrtowc mbsinit mbsnrtowcs mbsrtowcs "
    "mbstowcs mbtowc memccpy memcmp memcpy memfrob memmem memmove mempcpy memset mkdtemp mkostemp "
    "mkostemp64 mkostemps mkostemps64 mkstemp mkstemp64 mkstemps mkstemps64 mktemp mktime mrand48 "
    "mrand48_r nanosleep new newlocale nrand48 nrand48_r obstack obstack_printf obstack_vprintf on_exit "
    "open_memstream open_wmemstream operator pclose perror popen posix_memalign posix_openpt printf "
    "program_invocation_name program_invocation_short_name pthread_atfork pthread_attr_destroy "
    "pthread_attr_getaffinity_np pthread_attr_getdetachstate pthread_attr_getguardsize "
    "pthread_attr_getinheritsched pthread_attr_getschedparam pthread_attr_getschedpolicy "
    "pthread_attr_getscope pthread_attr_getsigmask_np pthread_attr_getstack pthread_attr_getstackaddr "
    "pthread_attr_getstacksize pthread_attr_init pthread_attr_setaffinity_np "
    "pthread_attr_setdetachstate pthread_attr_setguardsize pthread_attr_setinheritsched "
    "pthread_attr_setschedparam pthread_attr_setschedpolicy pthread_attr_setscope "
    "pthread_attr_setsigmask_np pthread_attr_setstack pthread_attr_setstackaddr "
    "pthread_attr_setstacksize pthread_barrier_destroy pthread_barrier_init pthread_barrier_wait "
    "pthread_barrierattr_destroy pthread_barrierattr_getpshared pthread_barrierattr_init "
    "pthread_barrierattr_setpshared pthread_cancel pthread_clockjoin_np pthread_cond_broadcast "
    "pthread_cond_clockwait pthread_cond_destroy pthread_cond_init pthread_cond_signal "
    "pthread_cond_timedwait pthread_cond_wait pthread_condattr_destroy pthread_condattr_getclock "
    "pthread_condattr_getpshared pthread_condattr_init pthread_condattr_setclock "
    "pthread_condattr_setpshared pthread_create pthread_detach pthread_equal pthread_exit "
    "pthread_getaffinity_np pthread_getattr_default_np pthread_getattr_np pthread_getconcurrency "
    "pthread_getcpuclockid pthread_getname_np pthread_getschedparam pthread_getspecific pthread_join "
    "pthread_key_create pthread_key_delete pthread_mutex_clocklock pthread_mutex_consistent "
    "pthread_mutex_consistent_np pthread_mutex_destroy pthread_mutex_getprioceiling pthread_mutex_init "
    "pthread_mutex_lock pthread_mutex_setprioceiling pthread_mutex_timedlock pthread_mutex_trylock "
    "pthread_mutex_unlock pthread_mutexattr_destroy pthread_mutexattr_getprioceiling "
    "pthread_mutexattr_getprotocol pthread_mutexattr_getpshared pthread_mutexattr_getrobust "
    "pthread_mutexattr_getrobust_np pthread_mutexattr_gettype pthread_mutexattr_init "
    "pthread_mutexattr_setprioceiling pthread_mutexattr_setprotocol pthread_mutexattr_setpshared "
    "pthread_mutexattr_setrobust pthread_mutexattr_setrobust_np pthread_mutexattr_settype pthread_once "
    "pthread_rwlock_clockrdlock pthread_rwlock_clockwrlock pthread_rwlock_destroy pthread_rwlock_init "
    "pthread_rwlock_rdlock pthread_rwlock_timedrdlock pthread_rwlock_timedwrlock "
    "pthread_rwlock_tryrdlock pthread_rwlock_trywrlock pthread_rwlock_unlock pthread_rwlock_wrlock "
    "pthread_rwlockattr_destroy pthread_rwlockattr_getkind_np pthread_rwlockattr_getpshared "
    "pthread_rwlockattr_init pthread_rwlockattr_setkind_np pthread_rwlockattr_setpshared pthread_self "
    "pthread_setaffinity_np pthread_setattr_default_np pthread_setcancelstate pthread_setcanceltype "
    "pthread_setconcurrency pthread_setname_np pthread_setschedparam pthread_setschedprio "
    "pthread_setspecific pthread_spin_destroy pthread_spin_init pthread_spin_lock pthread_spin_trylock "
    "pthread_spin_unlock pthread_testcancel pthread_timedjoin_np pthread_tryjoin_np pthread_yield "
    "ptsname ptsname_r putc putc_unlocked putchar putchar_unlocked putenv puts putw putwc "
    "putwc_unlocked putwchar putwchar_unlocked qecvt qecvt_r qfcvt qfcvt_r qgcvt qsort qsort_r "
    "quick_exit rand rand_r random random_data random_r realloc reallocarray realpath remove rename "
    "renameat renameat2 rewind rpmatch scanf sched_get_priority_max sched_get_priority_min "
    "sched_getaffinity sched_getcpu sched_getparam sched_getscheduler sched_param sched_rr_get_interval "
    "sched_setaffinity sched_setparam sched_setscheduler sched_yield secure_getenv seed48 seed48_r "
    "setbuf setbuffer setenv setlinebuf setlocale setns setstate setstate_r setvbuf sigabbrev_np "
    "sigdescr_np sigevent snprintf sprintf srand srand48 srand48_r srandom srandom_r sscanf stat stpcpy "
    "stpncpy strcat strcmp strcoll strcoll_l strcpy strcspn strdup strerror strerror_l strerror_r "
    "strerrordesc_np strerrorname_np strfromd strfromf strfromf32 strfromf32x strfromf64 strfromf64x "
    "strfroml strfry strftime strftime_l strlen strncat strncmp strncpy strndup strnlen strptime "
    "strptime_l strsep strsignal strspn strtod strtod_l strtof strtof32 strtof32_l strtof32x "
    "strtof32x_l strtof64 strtof64_l strtof64x strtof64x_l strtof_l strtok strtok_r strtol strtol_l "
    "strtold strtold_l strtoll strtoll_l strtoq strtoul strtoul_l strtoull strtoull_l strtouq "
    "strverscmp strxfrm strxfrm_l swprintf swscanf system tempnam time timegm timelocal timer_create "
    "timer_delete timer_getoverrun timer_gettime timer_settime timespec timespec_get timespec_getres "
    "timeval timex timezone tm tmpfile tmpfile64 tmpnam tmpnam_r toascii tolower tolower_l toupper "
    "toupper_l towctrans towctrans_l towlower towlower_l towupper towupper_l tzname tzset ungetc "
    "ungetwc unlockpt unsetenv unshare uselocale va_list valloc vasprintf vdprintf vfprintf vfscanf "
    "vfwprintf vfwscanf vprintf vscanf vsnprintf vsprintf vsscanf vswprintf vswscanf vwprintf vwscanf "
    "wcpcpy wcpncpy wcrtomb wcscasecmp wcscasecmp_l wcscat wcschr wcschrnul wcscmp wcscoll wcscoll_l "
    "wcscpy wcscspn wcsdup wcsftime wcsftime_l wcslen wcsncasecmp wcsncasecmp_l wcsncat wcsncmp wcsncpy "
    "wcsnlen wcsnrtombs wcspbrk wcsrchr wcsrtombs wcsspn wcsstr wcstod wcstod_l wcstof wcstof32 "
    "wcstof32_l wcstof32x wcstof32x_l wcstof64 wcstof64_l wcstof64x wcstof64x_l wcstof_l wcstok wcstol "
    "wcstol_l wcstold wcstold_l wcstoll wcstoll_l wcstombs wcstoq wcstoul wcstoul_l wcstoull wcstoull_l "
    "wcstouq wcswcs wcswidth wcsxfrm wcsxfrm_l wctob wctomb wctrans wctrans_l wctype wctype_l wcwidth "
    "wmemchr wmemcmp wmemcpy wmemmove wmempcpy wmemset wprintf wscanf ";

std::unordered_set<std::string_view> wordsOf(std::string_view text) {
    std::unordered_set<std::string_view> words;
    for (std::size_t end = 0; (end = text.find(' ')) != std::string_view::npos; text.remove_prefix(end + 1)) {
        words.insert(text.substr(0, end));
    }
    return words;
}

bool startsWith(std::string const & name, std::string_view front) {
    return name.compare(0, front.size(), front) == 0;
}

} // namespace

bool isSystemMacro(std::string const & name) {
    static std::unordered_set<std::string_view> const all = wordsOf(macros);
    return all.count(name) != 0 || startsWith(name, "SYS_") || startsWith(name, "SIG") ||
           startsWith(name, "TAV_");
}

bool isGlobalName(std::string const & name) {
    static std::unordered_set<std::string_view> const all = wordsOf(globals);
    bool const isType = name.size() > 2 && name.compare(name.size() - 2, 2, "_t") == 0;
    return all.count(name) != 0 || isType || startsWith(name, "tav");
}

} // namespace tool
} // namespace tav
