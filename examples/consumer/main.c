/* A C program using an installed libkt through its plain-named families:
   a CRC, a hash table in the default memory context, and decimal
   conversion in the default fpc context. */
#include <stdio.h>
#include <string.h>

#include <kt/checksum.h>
#include <kt/contexts.h>

int main(void) {
    const char* text = "123456789";
    uint32_t crc = kt_crc_update(0, (const unsigned char*)text, (int)strlen(text));

    kt_ghash_table* table = kt_new_ghash_table(ktGetMemoryContext(), NULL, NULL, NULL, NULL,
                                               NULL, NULL, 8, 8, 8, 16, NULL, 7, 0.5f, 1.0f);
    for (uint64_t key = 1; key <= 100; ++key) {
        uint64_t square = key * key;
        kt_ghash_insert(table, &key, &square);
    }
    uint64_t probe = 12, found = 0;
    int present = kt_ghash_query(table, &probe, &found);
    kt_delete_ghash_table(table);

    char* end = NULL;
    int status = 0;
    double value = kt_strtod(ktGetFpcContext(), "2.5e-3", &end, &status);
    char shortest[32];
    kt_g_fmt(ktGetFpcContext(), value, shortest, sizeof shortest);

    printf("C: crc32 %08x, 12 squared %llu, 2.5e-3 prints as %s\n", (unsigned)crc,
           (unsigned long long)found, shortest);
    return crc == 0xCBF43926u && present && found == 144 && strcmp(shortest, ".0025") == 0 ? 0 : 1;
}
