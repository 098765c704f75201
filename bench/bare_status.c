// The least that a program over libgit2 does for a status: the peer of a short command.
#include <git2.h>
#include <stdio.h>

int main(int argc, char **argv) {
    git_repository *repository = NULL;
    git_status_list *list = NULL;
    git_status_options options;
    git_status_options_init(&options, GIT_STATUS_OPTIONS_VERSION);
    options.flags = GIT_STATUS_OPT_INCLUDE_UNTRACKED | GIT_STATUS_OPT_RECURSE_UNTRACKED_DIRS |
                    GIT_STATUS_OPT_INCLUDE_UNMODIFIED | GIT_STATUS_OPT_RENAMES_HEAD_TO_INDEX;
    git_libgit2_init();
    if (argc != 2 || git_repository_open(&repository, argv[1]) < 0 ||
        git_status_list_new(&list, repository, &options) < 0)
        return 1;
    printf("%zu\n", git_status_list_entrycount(list));
    git_status_list_free(list);
    git_repository_free(repository);
    git_libgit2_shutdown();
    return 0;
}
