#include <SingleInstanceController.h>

int main(void)
{
    SingleInstanceState (*const start)(void) = startSingleInstance; /* wants an application */
    return start && stopSingleInstance() == getSingleInstanceState() ? 0 : 1;
}
