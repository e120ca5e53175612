# BuildPackage: `make describe` prints the packages' variables, `make install-NAME` runs a package's recipe into DEST/NAME.
PACKAGES :=

define BuildPackage
PACKAGES += $(1)
$(eval $(call Package/$(1)))
$(foreach name,TITLE SECTION CATEGORY DEPENDS PROVIDES USERID,$(eval $(1).$(name) := $($(name)))$(eval $(name) :=))
install-$(1):
$(call Package/$(1)/install,$(DEST)/$(1))
endef

define line

endef

describe:
	@$(foreach name,NAME VERSION RELEASE MAINTAINER LICENSE LICENSE_FILES,echo '$(name)=$(PKG_$(name))';)
	@echo 'CMAKE_OPTIONS=$(strip $(CMAKE_OPTIONS))'
	@$(foreach package,$(PACKAGES),$(foreach name,TITLE SECTION CATEGORY DEPENDS PROVIDES USERID,\
		echo '$(package).$(name)=$($(package).$(name))';))
	@$(foreach package,$(PACKAGES),echo '$(package).conffiles=$(strip $(Package/$(package)/conffiles))';)

# The real build system would apply the patches of the package's folder.
define Build/Patch
	touch $(PKG_BUILD_DIR)/patched
endef

prepare:
	$(Build/Prepare)

dev:
	$(call Build/InstallDev,$(DEST)/dev)
