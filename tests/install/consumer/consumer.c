/* Installed-package check from C: the umbrella header and a few plain calls. */
#include <krv.h>
#include <stdio.h>
#include <string.h>

int main(void)
{
    KrvJson *root = NULL;
    if (KRV_JsonParseByString("{\"name\":\"consumer\"}", &root) != KRV_OK || root == NULL) {
        return 1;
    }
    KRV_JsonDelete(root);
    printf("%s\n", KRV_VersionGet());
    return strncmp(KRV_VersionGet(), "Merilux_", 8) == 0 ? 0 : 1;
}
