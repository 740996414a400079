#include "meta/media_services.h"

MediaServices& mediaServices() {
    static MediaServices services;
    return services;
}
