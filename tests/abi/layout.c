/* Prints what hosts of vole.h have compiled in: the layout of its structures, and its numbers. */
#include <stddef.h>
#include <stdio.h>

#include "vole.h"

#define SIZE(type) printf("%s %lu\n", #type, (unsigned long)sizeof(type))
#define FIELD(type, field) printf("  %s %lu\n", #field, (unsigned long)offsetof(type, field))
#define NUMBER(name) printf("%s %ld\n", #name, (long)(name))

int main(void) {
    int number;
    const vole_limits limits = VOLE_LIMITS_INIT;
    const vole_isolation isolation = VOLE_ISOLATION_INIT;

    SIZE(vole_load_problem);
    FIELD(vole_load_problem, line);
    FIELD(vole_load_problem, text);
    FIELD(vole_load_problem, text_size);
    FIELD(vole_load_problem, reason);
    FIELD(vole_load_problem, fatal);
    SIZE(vole_load_options);
    FIELD(vole_load_options, flags);
    FIELD(vole_load_options, on_problem);
    FIELD(vole_load_options, context);
    SIZE(vole_limits);
    FIELD(vole_limits, max_content);
    FIELD(vole_limits, max_member);
    FIELD(vole_limits, max_total);
    FIELD(vole_limits, max_members);
    FIELD(vole_limits, max_depth);
    FIELD(vole_limits, max_ratio);
    FIELD(vole_limits, max_time_ms);
    SIZE(vole_isolation);
    FIELD(vole_isolation, worker);
    FIELD(vole_isolation, max_memory);
    FIELD(vole_isolation, grace_ms);
    FIELD(vole_isolation, why);
    FIELD(vole_isolation, why_size);
    SIZE(vole_bytes);
    SIZE(vole_path);
    SIZE(vole_finding);
    FIELD(vole_finding, kind);
    FIELD(vole_finding, form);
    FIELD(vole_finding, allowed);
    FIELD(vole_finding, offset);
    FIELD(vole_finding, member);
    SIZE(vole_reason);
    FIELD(vole_reason, text);
    FIELD(vole_reason, member);
    SIZE(vole_counters);
    FIELD(vole_counters, bytes_unpacked);
    FIELD(vole_counters, members);
    FIELD(vole_counters, deepest_level);
    FIELD(vole_counters, time_us);
    FIELD(vole_counters, findings);
    FIELD(vole_counters, reasons);
    SIZE(vole_event);
    FIELD(vole_event, member);
    FIELD(vole_event, size);
    FIELD(vole_event, finding);
    FIELD(vole_event, reason);
    FIELD(vole_event, bytes_done);
    FIELD(vole_event, content);
    SIZE(vole_content);
    FIELD(vole_content, size);
    FIELD(vole_content, packed_size);
    FIELD(vole_content, method);
    FIELD(vole_content, is_packed);
    FIELD(vole_content, checksum);
    printf("limits %lu %lu %lu %lu %lu %lu %lu\n", (unsigned long)limits.max_content, (unsigned long)limits.max_member,
           (unsigned long)limits.max_total, (unsigned long)limits.max_members, (unsigned long)limits.max_depth,
           (unsigned long)limits.max_ratio, (unsigned long)limits.max_time_ms);
    printf("isolation %lu %lu\n", (unsigned long)isolation.max_memory, (unsigned long)isolation.grace_ms);
    for (number = 0; number <= VOLE_E_ISOLATION + 1; ++number) {
        printf("error %d %s\n", number, vole_error_text((vole_error)number));
    }
    for (number = 0; number <= VOLE_OUTCOME_FAILED + 1; ++number) {
        printf("outcome %d %s\n", number, vole_outcome_name((vole_outcome)number));
    }
    for (number = 0; number <= VOLE_REASON_IO + 1; ++number) {
        printf("reason %d %s\n", number, vole_reason_name((vole_reason_code)number));
    }
    NUMBER(VOLE_KIND_MD5);
    NUMBER(VOLE_KIND_CHECKSUM);
    NUMBER(VOLE_FORM_RAW);
    NUMBER(VOLE_FORM_NORMALISED);
    NUMBER(VOLE_EVENT_MEMBER_ENTERED);
    NUMBER(VOLE_EVENT_MEMBER_DONE);
    NUMBER(VOLE_EVENT_FINDING);
    NUMBER(VOLE_EVENT_REASON);
    NUMBER(VOLE_EVENT_PROGRESS);
    NUMBER(VOLE_EVENT_CONTENT);
    NUMBER(VOLE_EVENT_FOLDER);
    NUMBER(VOLE_EVENT_EMPTY_MEMBER);
    NUMBER(VOLE_CHECKSUM_NONE);
    NUMBER(VOLE_CHECKSUM_RIGHT);
    NUMBER(VOLE_CHECKSUM_WRONG);
    NUMBER(VOLE_LOAD_STRICT);
    NUMBER(VOLE_LOAD_THREADS);
    NUMBER(VOLE_SCAN_ALL_MATCHES);
    NUMBER(VOLE_SCAN_SHALLOW);
    NUMBER(VOLE_SCAN_CONTENTS);
    return 0;
}
